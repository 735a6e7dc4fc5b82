#include "tools/jxpush/serial/records.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/tools/jxpush/test_files.h"

using namespace jxpush;

namespace {

template <std::size_t Size>
std::string bytes(const char (&literal)[Size]) {
  return std::string(literal, Size - 1);
}

const std::string kParameters = "\x02ZOR,JXAPP,XDL,p,,,,1024,,\x03\x57\xCF";

// Feeds until a record is found; the number of bytes that took, 0 when none was.
std::size_t feed(ParameterReader& reader, const std::string& input) {
  for (std::size_t i = 0; i < input.size(); ++i) {
    if (reader.take(static_cast<unsigned char>(input[i]))) return i + 1;
  }
  return 0;
}

std::string nameIn(const std::string& record) { return record.substr(41, record.size() - 41 - 3); }

}  // namespace

TEST(SerialRecords, Close_IsFiveBytes) { EXPECT_EQ(bytes("\x02\x43\x03\x8A\x0C"), closeRecord()); }

TEST(SerialRecords, Open_HasItsNameBehind39Bytes) {
  const std::string record = openRecord("hello.zip");
  EXPECT_EQ("\x02O", record.substr(0, 2));
  EXPECT_EQ(std::string(39, ' '), record.substr(2, 39));
  EXPECT_EQ("hello.zip\x03", record.substr(41, 10));
  EXPECT_EQ(53U, record.size());
}

TEST(SerialRecords, Data_HasBigEndianLengthAndOffset) {
  const std::string record = dataRecord(0x01020304, "abc", 3);
  EXPECT_EQ(bytes("\x02W\x00\x03\x01\x02\x03\x04"
                  "abc"),
            record.substr(0, 11));
  EXPECT_EQ(13U, record.size());
  EXPECT_EQ(10U, dataRecord(0, nullptr, 0).size());
}

TEST(SerialRecords, Cancel_HoldsNoControlByteBehindSTX) { EXPECT_EQ(bytes("\x02W\xFF\xFF\0\0\0\0"), cancelRecord()); }

TEST(SerialRecords, NamesThatTheTerminalTakesForSettings_GetAPrefix) {
  EXPECT_EQ("./setgroup.zip", nameIn(openRecord("setgroup.zip")));
  EXPECT_EQ("./setdrive.", nameIn(openRecord("setdrive.")));
  EXPECT_EQ("setgroup", nameIn(openRecord("setgroup")));
}

TEST(SerialRecords, ControlCharacters_BecomeUnderscores) {
  EXPECT_EQ("a_b_c_", nameIn(openRecord("a\x03"
                                        "b\nc\x7F")));
}

TEST(SerialRecords, LongName_IsCutAtACharacter) {
  EXPECT_EQ(std::string(213, 'x'), nameIn(openRecord(std::string(4096, 'x'))));
  EXPECT_EQ(std::string(212, 'x'), nameIn(openRecord(std::string(212, 'x') + "\xC3\xA4")));
  EXPECT_EQ(std::string(211, 'x') + "\xC3\xA4", nameIn(openRecord(std::string(211, 'x') + "\xC3\xA4")));
}

TEST(SerialRecords, LongMessage_KeepsItsTail) {
  EXPECT_EQ("\x02Ma_b: 5 %\x03", messageRecord("a\x03"
                                               "b",
                                               ": 5 %")
                                     .substr(0, 11));
  EXPECT_EQ(2 + 252 + 3U, messageRecord(std::string(1000, 'x'), "").size());
  const std::string record = messageRecord(std::string(246, 'x') + "\xC3\xA4", ": 5 %");
  EXPECT_EQ(std::string(246, 'x') + ": 5 %\x03", record.substr(2, record.size() - 4));
}

namespace {

// The records that a data record of `data` would be taken for, each sent as far as it is safe.
std::vector<std::string> safePieces(std::string data) {
  std::vector<std::string> pieces;
  for (std::uint32_t offset = 0; !data.empty(); offset += static_cast<std::uint32_t>(pieces.back().size())) {
    pieces.push_back(data.substr(0, safeDataSize(offset, data.data(), data.size())));
    data.erase(0, pieces.back().size());
  }
  return pieces;
}

}  // namespace

TEST(SerialRecords, DataWithoutARecord_GoesInOnePiece) {
  const std::string texts[] = {std::string("\x02", 1),
                               std::string(1024, '\x02'),
                               bytes("\x02S\x03\x81\x6C"),      // a wrong check value
                               recordOf("X\x03"),               // a letter that the terminal does not know
                               recordOf("Sa\x03"),              // no signal record is longer
                               bytes("\x02S\x03\x81"),          // cut
                               bytes("\x02W\x00\x09\0\0\0\0"),  // longer than there is
                               bytes("\x02W\xFF\xFF\0\0\0\0\0\0")};
  for (const std::string& text : texts) EXPECT_EQ(std::vector<std::string>{text}, safePieces(text));
}

TEST(SerialRecords, RecordInTheData_IsDividedBeforeItsLastByte) {
  const std::string records[] = {closeRecord(), openRecord("name"), messageRecord("a", ""), dataRecord(7, "xyz", 3),
                                 dataRecord(0, nullptr, 0)};
  for (const std::string& record : records) {
    const std::string head = record.substr(0, record.size() - 1);
    const std::string tail = record.substr(record.size() - 1);
    EXPECT_EQ((std::vector<std::string>{head, tail}), safePieces(record));
    EXPECT_EQ((std::vector<std::string>{"\x02" + head, tail + head, tail + "\x02Z"}),
              safePieces("\x02" + record + record + "\x02Z"));
  }
}

// A close record in the offset and the first byte of the data: no piece is without it.
TEST(SerialRecords, RecordThatBeginsInTheHead_LeavesOneByte) {
  const std::string data = "\x0C more";
  for (std::size_t size = 1; size <= data.size(); ++size) EXPECT_EQ(1U, safeDataSize(0x0243038A, data.data(), size));
}

TEST(ParameterReader, Record_IsFoundAtItsLastByte) {
  ParameterReader reader;
  EXPECT_EQ(29U, feed(reader, kParameters));
  EXPECT_EQ(1024U, reader.largestData());
  EXPECT_EQ(0U, reader.skipped());
}

TEST(ParameterReader, NoiseBeforeIt_IsCounted) {
  for (const std::string noise : {"\x06", "\x15\x06", "\x02", "\x02\x03\x02", "\x02ZOR,\x03zz\x02"}) {
    ParameterReader reader;
    EXPECT_EQ(noise.size() + 29, feed(reader, noise + kParameters)) << noise;
    EXPECT_EQ(noise.size(), reader.skipped()) << noise;
  }
}

TEST(ParameterReader, CutOrDamagedRecord_IsNotFound) {
  for (std::size_t at = 0; at < kParameters.size(); ++at) {
    ParameterReader reader;
    std::string damaged = kParameters;
    damaged[at] = static_cast<char>(damaged[at] ^ 1);
    EXPECT_EQ(0U, feed(reader, damaged)) << at;
    // A whole one behind it is.
    EXPECT_EQ(29U, feed(reader, kParameters)) << at;
  }
  ParameterReader reader;
  EXPECT_EQ(0U, feed(reader, recordOf("no ETX")));
}

TEST(ParameterReader, LengthField_IsKeptWithinADataRecord) {
  const struct {
    std::string record;
    std::size_t largest;
  } cases[] = {
      {bytes("\x02,,,,,,,512,,\x03\x30\x9E"), 512}, {bytes("\x02,,,,,,,2000,,\x03\xB3\x2C"), 1024},
      {bytes("\x02,,,,,,,,,\x03\x3D\x88"), 1024},   {bytes("\x02ZOR\x03\x21\xD8"), 1024},
      {recordOf(",,,,,,,51x,,\x03"), 51},
  };
  for (const auto& item : cases) {
    ParameterReader reader;
    EXPECT_EQ(item.record.size(), feed(reader, item.record));
    EXPECT_EQ(item.largest, reader.largestData());
  }
}
