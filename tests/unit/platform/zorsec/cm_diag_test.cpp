#include <gtest/gtest.h>
#include <zorsec.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/platform_root.h"

namespace {

using Bytes = std::vector<unsigned char>;

// The records up to the failure that ends a walk.
std::vector<Bytes> walk() {
  std::vector<Bytes> records;
  while (true) {
    unsigned char buffer[1024];
    unsigned short length = sizeof buffer;
    const int result = CMDiag(kCMDiagRecords, buffer, &length);
    if (result != 0) {
      EXPECT_NE(result, kCMDiagRetry);
      return records;
    }
    records.emplace_back(buffer, buffer + length);
    if (records.size() > 100) return records;
  }
}

const Bytes kSponsorRecord{0x06, 0x00, 0x00, 0x00,              // the identifier is six bytes long
                           0x33, 0x32, 0x31, 0x30, 0x30, 0x30,  // 123, units first
                           0x06, 0x00, 0x00, 0x00,              // the name field follows the identifier
                           0x02, 0x03, 0x20, 0x08, 0x21, 0xC5,  //
                           0x04, 0x00, 0x00, 0x00, 'A',  'c',  'm', 'e'};

class DiagnosticRecords : public testing::Test {
 protected:
  void TearDown() override { writeTerminalJson(nullptr); }
};

}  // namespace

TEST_F(DiagnosticRecords, Walk_EndsWithTheSponsorsRecord) {
  writeTerminalJson(R"({"sponsor":{"identifier":"0203200821C5","number":123,"name":"Acme"}})");
  const std::vector<Bytes> records = walk();
  ASSERT_GE(records.size(), 3U);
  EXPECT_EQ(records.back(), kSponsorRecord);
}

TEST_F(DiagnosticRecords, RecordsBeforeIt_AreNobodysWithAKnownIdentifier) {
  writeTerminalJson(R"({"sponsor":{"identifier":"0203200821C5","number":123,"name":"Acme"}})");
  const std::vector<Bytes> records = walk();
  const std::vector<Bytes> known{{2, 3, 0x20, 8, 0x21, 0xC5},
                                 {2, 3, 1, 2, 0x36, 0x51},
                                 {2, 3, 0x20, 0x87, 0x16, 0x77},
                                 {2, 3, 0x20, 0x87, 0x20, 0x19}};
  ASSERT_GE(records.size(), 3U);
  for (std::size_t i = 0; i + 1 < records.size(); ++i) {
    ASSERT_GE(records[i].size(), 18U);
    const Bytes identifier(records[i].begin() + 14, records[i].begin() + 14 + records[i][0]);
    EXPECT_EQ(std::count(known.begin(), known.end(), identifier), 0) << i;
  }
}

TEST_F(DiagnosticRecords, WalkAfterTheFailure_BeginsAnew) {
  writeTerminalJson(R"({"sponsor":{"identifier":"0203200821c5","number":123,"name":"Acme"}})");
  const std::vector<Bytes> first = walk();
  EXPECT_EQ(walk(), first);
}

TEST_F(DiagnosticRecords, ChangedSettings_HoldFromTheNextWalkOn) {
  EXPECT_EQ(walk().size(), 2U);
  writeTerminalJson(R"({"sponsor":{"identifier":"0203200821C5","number":123,"name":"Acme"}})");
  EXPECT_EQ(walk().back(), kSponsorRecord);
}

TEST_F(DiagnosticRecords, SettingsChangedAfterTheLastRecord_BeginTheWalkAnew) {
  writeTerminalJson(R"({"sponsor":{"identifier":"0203200821C5","number":123}})");
  for (int i = 0; i < 3; ++i) {
    unsigned char buffer[1024];
    unsigned short length = sizeof buffer;
    ASSERT_EQ(CMDiag(kCMDiagRecords, buffer, &length), 0);
  }
  writeTerminalJson(R"({"sponsor":{"identifier":"0203200821C5","number":123,"name":"Acme"}})");
  const std::vector<Bytes> records = walk();
  ASSERT_EQ(records.size(), 3U);
  EXPECT_EQ(records.back(), kSponsorRecord);
}

TEST_F(DiagnosticRecords, Number_IsSixDigitsUnitsFirst) {
  writeTerminalJson(R"({"sponsor":{"identifier":"020301023651","number":987654,"name":"x"}})");
  const Bytes record = walk().back();
  EXPECT_EQ(Bytes(record.begin() + 4, record.begin() + 10), (Bytes{0x34, 0x35, 0x36, 0x37, 0x38, 0x39}));
  writeTerminalJson(R"({"sponsor":{"identifier":"020301023651","number":0,"name":"x"}})");
  const Bytes zero = walk().back();
  EXPECT_EQ(Bytes(zero.begin() + 4, zero.begin() + 10), Bytes(6, 0x30));
}

TEST_F(DiagnosticRecords, LongName_StandsWholeInTheRecord) {
  const std::string name(200, 'n');
  writeTerminalJson((R"({"sponsor":{"identifier":"0203200821C5","number":1,"name":")" + name + "\"}}").c_str());
  const Bytes record = walk().back();
  ASSERT_EQ(record.size(), 24U + 200U);
  EXPECT_EQ(record[20], 200);
  EXPECT_EQ(std::string(record.begin() + 24, record.end()), name);
}

TEST_F(DiagnosticRecords, MissingName_IsEmpty) {
  writeTerminalJson(R"({"sponsor":{"identifier":"0203200821C5","number":1}})");
  const Bytes record = walk().back();
  ASSERT_EQ(record.size(), 24U);
  EXPECT_EQ(Bytes(record.begin() + 20, record.end()), Bytes(4, 0));
}

TEST_F(DiagnosticRecords, IdentifierOfAnotherLength_MovesTheName) {
  writeTerminalJson(R"({"sponsor":{"identifier":"0A0B","number":1,"name":"xy"}})");
  EXPECT_EQ(walk().back(),
            (Bytes{2, 0, 0, 0, 0x31, 0x30, 0x30, 0x30, 0x30, 0x30, 2, 0, 0, 0, 10, 11, 2, 0, 0, 0, 'x', 'y'}));
}

TEST_F(DiagnosticRecords, SponsorThatFitsNoRecord_HasNone) {
  for (const char* const sponsor :
       {R"({"number":1,"name":"x"})", R"({"identifier":"0203200821C5","name":"x"})",
        R"({"identifier":"","number":1,"name":"x"})", R"({"identifier":"0203200821C","number":1,"name":"x"})",
        R"({"identifier":"0203200821CG","number":1,"name":"x"})",
        R"({"identifier":"0203200821C5","number":1000000,"name":"x"})",
        R"({"identifier":"0203200821C5","number":-1,"name":"x"})", R"("text")"}) {
    writeTerminalJson((std::string(R"({"sponsor":)") + sponsor + "}").c_str());
    EXPECT_EQ(walk().size(), 2U) << sponsor;
  }
}

TEST_F(DiagnosticRecords, TooLittleRoom_FailsAndTheWalkGoesOn) {
  writeTerminalJson(R"({"sponsor":{"identifier":"0203200821C5","number":123,"name":"Acme"}})");
  unsigned char buffer[1024];
  unsigned short length = 10;
  const int result = CMDiag(kCMDiagRecords, buffer, &length);
  EXPECT_NE(result, 0);
  EXPECT_NE(result, kCMDiagRetry);
  EXPECT_EQ(walk().back(), kSponsorRecord);
}

TEST_F(DiagnosticRecords, OtherQueryOrNoBuffer_Fails) {
  unsigned char buffer[64];
  unsigned short length = sizeof buffer;
  EXPECT_NE(CMDiag(3, buffer, &length), 0);
  EXPECT_NE(CMDiag(kCMDiagRecords, nullptr, &length), 0);
  EXPECT_NE(CMDiag(kCMDiagRecords, buffer, nullptr), 0);
}
