#include "shell/sponsor.h"

#include <atomic>
#include <future>
#include <initializer_list>

#include "tests/support/in_child.h"
#include "tests/unit/shell/fixture.h"
#include "tests/unit/shell/records.h"
#include "tests/unit/shell/watched_locks.h"

namespace {

constexpr int kRetry = -510;

class SponsorTest : public ShellTest {
 protected:
  void diagnose(std::initializer_list<FakeTerminal::Diagnostic> answers) {
    for (const auto& answer : answers) terminal.diagnose(answer);
  }

  void diagnoseRecord(const std::string& record) { diagnose({{0, record, {}}}); }

  // "number/name" of a lookup in a process whose cache is empty.
  static std::string found() {
    return inChild([] {
      const Sponsor sponsor = lookUpSponsor();
      return sponsor.number + "/" + sponsor.name;
    });
  }

  // Records that must be skipped are followed by a good one, which must then be found.
  void expectSkipped(const std::string& record) {
    terminal.reset();
    diagnoseRecord(record);
    diagnoseRecord(sponsorRecord("654321", "NEXT"));
    EXPECT_EQ(found(), "654321/NEXT");
  }

  void expectNothing(const std::string& record) {
    terminal.reset();
    diagnoseRecord(record);
    diagnoseRecord(sponsorRecord("654321", "NEXT"));
    EXPECT_EQ(found(), "/");
  }
};

TEST_F(SponsorTest, Number_IsReadFromTheUnitsOn) {
  // the digit bytes 0x33 0x32 0x31 0x30 0x30 0x30
  diagnoseRecord(recordHead(6, "321000", 6, kAcceptedIdentifier) + word(4) + "ACME");
  EXPECT_EQ(found(), "000123/ACME");
}

TEST_F(SponsorTest, Digits_CountTheirLowFourBitsOnly) {
  diagnoseRecord(recordHead(6, "\xF3\x42\x01\x70\xA0\x90", 6, kAcceptedIdentifier) + word(1) + "A");
  EXPECT_EQ(found(), "000123/A");
}

TEST_F(SponsorTest, DigitsBeyond9_CarryOver) {
  diagnoseRecord(recordHead(6, std::string(6, '\x0F'), 6, kAcceptedIdentifier) + word(1) + "A");
  EXPECT_EQ(found(), "1666665/A");
}

TEST_F(SponsorTest, EachAcceptedIdentifier_IsTaken) {
  for (const std::string& identifier :
       {std::string("\x02\x03\x20\x08\x21\xC5"), std::string("\x02\x03\x01\x02\x36\x51"),
        std::string("\x02\x03\x20\x87\x16\x77"), std::string("\x02\x03\x20\x87\x20\x19")}) {
    terminal.reset();
    diagnoseRecord(sponsorRecord("000007", "SEVEN", identifier));
    EXPECT_EQ(found(), "000007/SEVEN");
  }
}

TEST_F(SponsorTest, OtherIdentifiers_AreSkipped) {
  for (std::size_t i = 0; i < 6; ++i) {
    std::string identifier = kAcceptedIdentifier;
    identifier[i] = static_cast<char>(identifier[i] ^ 1);
    expectSkipped(sponsorRecord("000001", "OTHER", identifier));
  }
  expectSkipped(sponsorRecord("000001", "OTHER", std::string(6, '\0')));
}

TEST_F(SponsorTest, IdentifierLengthsOtherThan6_AreSkipped) {
  for (const std::uint32_t length : {0U, 5U, 7U, 0x00060000U, 0x06000006U, 0xFFFFFFFFU}) {
    expectSkipped(recordHead(length, "100000", 6, kAcceptedIdentifier) + word(3) + "ABC");
  }
}

TEST_F(SponsorTest, DataThatEndsBeforeTheIdentifier_IsSkipped) {
  const std::string record = sponsorRecord("000001", "CUT");
  for (std::size_t size = 4; size < 20; ++size) expectSkipped(record.substr(0, size));
  const std::string nameWithin = recordHead(6, "000001", 0, kAcceptedIdentifier);
  for (std::size_t size = 14; size < 20; ++size) expectSkipped(nameWithin.substr(0, size));
}

TEST_F(SponsorTest, LengthBelow4_EndsTheLookup) {
  for (std::size_t size = 0; size < 4; ++size) expectNothing(sponsorRecord("000001", "CUT").substr(0, size));
}

TEST_F(SponsorTest, BytesBeyondTheReturnedLength_DoNotCount) {
  terminal.reset();
  diagnose({{0, sponsorRecord("000001", "CUT"), 14}, {0, sponsorRecord("654321", "NEXT"), {}}});
  EXPECT_EQ(found(), "654321/NEXT");
  terminal.reset();
  diagnose({{0, sponsorRecord("000001", "CUT"), 25}});
  EXPECT_EQ(found(), "/");
  for (unsigned short size = 14; size < 20; ++size) {  // a cut identifier, behind which the rest of it lies
    terminal.reset();
    diagnose({{0, recordHead(6, "100000", 0, kAcceptedIdentifier), size}, {0, sponsorRecord("654321", "NEXT"), {}}});
    EXPECT_EQ(found(), "654321/NEXT") << size;
  }
}

TEST_F(SponsorTest, NameFieldBeyondTheData_IsSkipped) {
  for (const std::uint32_t distance : {7U, 100U, 0x7FFFFFF2U, 0xFFFFFFF2U, 0xFFFFFFFFU}) {
    expectSkipped(recordHead(6, "100000", distance, kAcceptedIdentifier));
  }
}

TEST_F(SponsorTest, NameFieldAtTheEndOfTheData_IsAnEmptyName) {
  expectNothing(recordHead(6, "100000", 6, kAcceptedIdentifier));
}

TEST_F(SponsorTest, NameLengthCut_IsAnEmptyName) {
  for (std::size_t size = 1; size < 4; ++size) {
    expectNothing(recordHead(6, "100000", 6, kAcceptedIdentifier) + word(1).substr(0, size));
  }
}

TEST_F(SponsorTest, NameTextBeyondTheData_IsAnEmptyName) {
  const std::string head = recordHead(6, "100000", 6, kAcceptedIdentifier);
  expectNothing(head + word(4) + "ABC");
  expectNothing(head + word(0xFFFFFFFFU) + "ABC");
  expectNothing(head + word(200) + std::string(150, 'n'));  // though the 127 bytes that would be shown are there
}

TEST_F(SponsorTest, NameLengthOfZero_IsAnEmptyName) {
  expectNothing(recordHead(6, "100000", 6, kAcceptedIdentifier) + word(0) + "ABC");
}

TEST_F(SponsorTest, NameFieldElsewhere_IsFoundByItsDistance) {
  diagnoseRecord(recordHead(6, "100000", 9, kAcceptedIdentifier) + "gap" + word(4) + "NAMEtail");
  EXPECT_EQ(found(), "000001/NAME");
}

TEST_F(SponsorTest, NameFieldOverTheIdentifier_IsReadWhereItIs) {
  // At distance 2 the name's length is made of the last bytes of the identifier, which does not fit the data.
  expectNothing(recordHead(6, "100000", 2, kAcceptedIdentifier) + word(1) + "A");
}

TEST_F(SponsorTest, Name_IsCutAt127Bytes) {
  for (const std::size_t size : {126U, 127U, 128U, 200U}) {
    terminal.reset();
    diagnoseRecord(sponsorRecord("000001", std::string(size, 'n')));
    EXPECT_EQ(found(), "000001/" + std::string(std::min<std::size_t>(size, 127), 'n'));
  }
}

TEST_F(SponsorTest, NameWithAZeroByte_EndsThere) {
  diagnoseRecord(sponsorRecord("000001", std::string("AB\0CD", 5)));
  EXPECT_EQ(found(), "000001/AB");
  terminal.reset();
  diagnoseRecord(sponsorRecord("000001", std::string(1, '\0')));
  EXPECT_EQ(found(), "000001/");  // a name all the same: its length is not zero
}

TEST_F(SponsorTest, LargestRecord_IsRead) {
  diagnoseRecord(recordHead(6, "100000", 65513, kAcceptedIdentifier) + std::string(65507, '-') + word(4) + "LAST");
  EXPECT_EQ(found(), "000001/LAST");
}

TEST_F(SponsorTest, NumberZero_IsNoSponsor) { expectNothing(sponsorRecord("000000", "ZERO")); }

TEST_F(SponsorTest, FirstGoodRecord_IsUsed) {
  diagnoseRecord(sponsorRecord("000001", "FIRST"));
  diagnoseRecord(sponsorRecord("000002", "SECOND"));
  EXPECT_EQ(found(), "000001/FIRST");
}

TEST_F(SponsorTest, FailedQuery_EndsTheLookup) {
  for (const int result : {-1, 1, -509, -511}) {
    terminal.reset();
    diagnose({{result, sponsorRecord("000001", "BAD"), {}}, {0, sponsorRecord("000002", "NEXT"), {}}});
    EXPECT_EQ(found(), "/") << result;
  }
}

TEST_F(SponsorTest, TransientFailure_IsRetriedOnce) {
  const std::string good = sponsorRecord("000001", "GOOD");
  diagnose({{kRetry, "", {}}, {0, good, {}}});
  EXPECT_EQ(found(), "000001/GOOD");
  terminal.reset();
  diagnose({{kRetry, "", {}}, {kRetry, "", {}}, {0, good, {}}});
  EXPECT_EQ(found(), "/");
}

TEST_F(SponsorTest, RetryIsForTheWholeLookup) {
  const std::string good = sponsorRecord("000001", "GOOD");
  const std::string skipped = sponsorRecord("000002", "SKIPPED", "123456");
  diagnose({{0, skipped, {}}, {kRetry, "", {}}, {0, skipped, {}}, {0, good, {}}});
  EXPECT_EQ(found(), "000001/GOOD");
  terminal.reset();
  diagnose({{kRetry, "", {}}, {0, skipped, {}}, {kRetry, "", {}}, {0, good, {}}});
  EXPECT_EQ(found(), "/");
}

TEST_F(SponsorTest, NextLookup_HasARetryOfItsOwn) {
  diagnose({{kRetry, "", {}}, {kRetry, "", {}}, {kRetry, "", {}}, {0, sponsorRecord("000001", "GOOD"), {}}});
  EXPECT_EQ(inChild([] {
              EXPECT_EQ(lookUpSponsor().number, "");
              return lookUpSponsor().number;
            }),
            "000001");
}

TEST_F(SponsorTest, EachCall_AsksQuery4) {
  diagnose({{0, sponsorRecord("000001", "A", "123456"), {}}, {kRetry, "", {}}});
  EXPECT_EQ(lookUpSponsor().number, "");
  EXPECT_EQ(terminal.diagnosticQueries, (std::vector<int>{4, 4, 4}));
}

TEST_F(SponsorTest, NothingFound_IsLookedUpAgain) {
  for (int i = 0; i < 3; ++i) {
    diagnose({{0, sponsorRecord("000000", "ZERO"), {}}});
    EXPECT_EQ(lookUpSponsor().number, "");
    EXPECT_EQ(lookUpSponsor().name, "");
  }
  EXPECT_EQ(terminal.diagnosticCalls(), 6U);
}

TEST_F(SponsorTest, Found_IsNeverLookedUpAgain) {
  const std::string result = inChild([this] {
    diagnose({{0, sponsorRecord("000000", "ZERO"), {}},
              {0, sponsorRecord("000009", ""), {}},
              {0, sponsorRecord("000001", "ONE"), {}},
              {0, sponsorRecord("000002", "TWO"), {}}});
    std::string all;
    for (int i = 0; i < 5; ++i) {
      const Sponsor sponsor = lookUpSponsor();
      all += sponsor.number + "/" + sponsor.name + " ";
    }
    return all + std::to_string(terminal.diagnosticCalls());
  });
  EXPECT_EQ(result, "/ / 000001/ONE 000001/ONE 000001/ONE 3");
}

// The second waits for the first, and then finds what that has found; whoever comes later does not even wait.
TEST_F(SponsorTest, LookupsAtOnce_AskOnceAndAgree) {
  const std::string result = inChild([this] {
    diagnose({{0, sponsorRecord("000042", "ALL"), {}}, {0, sponsorRecord("000043", "OTHER"), {}}});
    std::promise<void> looking;
    std::promise<void> waiting;
    std::atomic<bool> isFirst{true};
    terminal.onDiagnostic = [&] {
      if (!isFirst.exchange(false)) return;
      looking.set_value();
      waiting.get_future().wait();
    };
    auto first = std::async(std::launch::async, lookUpSponsor);
    looking.get_future().wait();
    auto second = std::async(std::launch::async, [&] {
      watched::beforeLock = [&] { waiting.set_value(); };
      return lookUpSponsor();
    });
    const std::string found = first.get().number + " " + second.get().name;
    EXPECT_EQ(watched::firstLockOf([] { EXPECT_EQ(lookUpSponsor().number, "000042"); }), nullptr);
    return found + " " + std::to_string(terminal.diagnosticCalls());
  });
  EXPECT_EQ(result, "000042 ALL 1");
}

}  // namespace
