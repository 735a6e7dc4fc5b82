// The protocol by itself: the host's bytes in, answers and calls out, on a line in memory.
#include <gtest/gtest.h>

#include "tests/support/memory_line.h"
#include "tests/unit/serial/download.h"

namespace {

using Lines = std::vector<std::string>;

constexpr int kGoesOn = tessolan::Conversation::kGoOn;

const std::string kACK = "\x06";
const std::string kNAK = "\x15";
const std::string kEOT = "\x04";

// A terminal that refuses the calls of this name.
struct Terminal {
  explicit Terminal(const std::string& refuse = "") : line(system) { system.refuse = refuse; }

  std::string exchange(const std::string& bytes) { return line.exchange(bytes); }

  RecordingSystem system;
  MemoryLine line;
};

class Protocol : public testing::Test {
 protected:
  std::string exchange(const std::string& bytes) { return terminal_.exchange(bytes); }
  Lines calls() const { return terminal_.system.calls(); }
  int result() const { return terminal_.line.result(); }

  Terminal terminal_;
};

}  // namespace

TEST_F(Protocol, EnquiryAndNak_YieldTheParameterRecord) {
  const std::string record =
      "\x02"
      "ZOR,JXAPP,XDL,p,,,,1024,,"
      "\x03\x57\xCF";
  EXPECT_EQ(record, exchange("\x05"));
  EXPECT_EQ(record, exchange("\x15"));
  EXPECT_EQ(kACK, exchange(signalRecord('S')));
  EXPECT_EQ(record + record, exchange("\x15\x05"));
}

TEST_F(Protocol, RecordsAsAHostSendsThem_AreUnderstood) {
  EXPECT_EQ(kACK, exchange(bytes("\x02O                                       a.zip\x03\x49"
                                 "\x35")));
  EXPECT_EQ(kACK, exchange(bytes("\x02W\0\5\0\0\1\2hello\xF0"
                                 "\xF3")));
  EXPECT_EQ(kACK, exchange(bytes("\x02M50 %\x03\xCD"
                                 "\xD3")));
  EXPECT_EQ(kACK, exchange(bytes("\x02S\x03\x6A"
                                 "\x0F")));
  EXPECT_EQ(kACK, exchange(bytes("\x02U\x03\x7E"
                                 "\x0F")));
  EXPECT_EQ(kACK, exchange(bytes("\x02\x43\x03\x8A\x0C")));
  EXPECT_EQ((Lines{"open a.zip", "write 258 5", "M 50 %", "S", "U", "close"}), calls());
  EXPECT_EQ(kGoesOn, result());
}

TEST_F(Protocol, EOT_IsAnsweredAndEndsWithSuccessAlsoWithoutAFile) {
  EXPECT_EQ(kEOT, exchange("\x04"));
  EXPECT_EQ(0, result());
  EXPECT_EQ(Lines{}, calls());
}

TEST_F(Protocol, EveryOtherByteBetweenRecords_IsIgnored) {
  std::string noise;
  for (int byte = 0; byte < 256; ++byte) {
    if (byte != 0x02 && byte != 0x04 && byte != 0x05 && byte != 0x15) noise += static_cast<char>(byte);
  }
  EXPECT_EQ(kACK, exchange(noise + signalRecord('U')));
  EXPECT_EQ(Lines{"U"}, calls());
}

TEST_F(Protocol, EveryTextLetter_GoesToItsOperationOrNone) {
  const struct {
    char letter;
    Lines calls;
  } cases[] = {{'O', {"open "}}, {'R', {"R ab"}}, {'M', {"M ab"}}, {'$', {}}, {'D', {}},
               {'F', {}},        {'I', {}},       {'L', {}},       {'P', {}}, {'T', {}}};
  for (const auto& item : cases) {
    Terminal terminal;
    EXPECT_EQ(kNAK, terminal.exchange(damaged(textRecord(item.letter, "ab")))) << item.letter;
    EXPECT_EQ(Lines{}, terminal.system.calls()) << item.letter;
    EXPECT_EQ(kACK, terminal.exchange(textRecord(item.letter, "ab"))) << item.letter;
    EXPECT_EQ(item.calls, terminal.system.calls()) << item.letter;
  }
}

TEST_F(Protocol, EveryByteOfACheckValue_Counts) {
  const std::string records[] = {textRecord('M', "ab"), signalRecord('S'), dataRecord(0, "ab")};
  for (const std::string& record : records) {
    for (std::size_t at = 2; at < record.size(); ++at) {
      if (record[1] == 'W' && at == 2) continue;  // a length of more than the terminal takes
      std::string wrong = record;
      wrong[at] = static_cast<char>(wrong[at] ^ 0x40);
      Terminal terminal;
      std::string answer = terminal.exchange(wrong);
      if (answer.empty()) answer = terminal.line.fail(-3);  // it waits for the end that the record has lost
      EXPECT_EQ(kNAK, answer) << record[1] << at;
      EXPECT_EQ(Lines{}, terminal.system.calls()) << record[1] << at;
    }
  }
}

TEST_F(Protocol, SignalWithoutETX_CountsAsFailed) {
  // The check value is right for what is there.
  EXPECT_EQ(kNAK, exchange("\x02"
                           "C\x04" +
                           checkValue("C\x04")));
  EXPECT_EQ(Lines{}, calls());
}

TEST_F(Protocol, EveryUnknownLetter_CountsAsFailedWithoutReadingOn) {
  const std::string known = "OWCRMSU$DFILPT";
  for (int letter = 0; letter < 256; ++letter) {
    if (known.find(static_cast<char>(letter)) != std::string::npos) continue;
    // The enquiry right behind it is no part of a record.
    const std::string record = "\x02" + std::string(1, static_cast<char>(letter)) + "\x05";
    EXPECT_EQ(kNAK + kParameterRecord, exchange(record)) << letter;
    EXPECT_EQ(kACK, exchange(signalRecord('S'))) << letter;
  }
}

TEST_F(Protocol, FileName_BeginsAtThe40thByte) {
  const struct {
    std::size_t size;
    std::string name;
  } cases[] = {{0, ""}, {1, ""}, {38, ""}, {39, ""}, {40, "y"}, {41, "yy"}, {252, std::string(213, 'y')}};
  for (const auto& item : cases) {
    std::string text(item.size, 'y');
    for (std::size_t i = 0; i < text.size() && i < 39; ++i) text[i] = 'x';
    Terminal terminal;
    EXPECT_EQ(kACK, terminal.exchange(textRecord('O', text))) << item.size;
    EXPECT_EQ(Lines{"open " + item.name}, terminal.system.calls()) << item.size;
  }
}

TEST_F(Protocol, TextWithEveryByteButETX_ReachesTheSystem) {
  std::string text;
  for (int byte = 1; byte < 252; ++byte) {
    if (byte != 3) text += static_cast<char>(byte);
  }
  EXPECT_EQ(kACK, exchange(textRecord('M', text)));
  EXPECT_EQ(Lines{"M " + text}, calls());
}

TEST_F(Protocol, ZeroByteInAText_EndsWhatTheSystemSees) {
  EXPECT_EQ(kACK, exchange(textRecord('M', bytes("ab\0cd"))));
  EXPECT_EQ(Lines{"M ab"}, calls());
}

TEST_F(Protocol, TextOf253Bytes_IsTooLong) {
  EXPECT_EQ(kACK, exchange(textRecord('M', std::string(252, 'x'))));
  EXPECT_EQ(kEOT, exchange(textRecord('M', std::string(253, 'x'))));
  EXPECT_EQ(-4, result());
}

TEST_F(Protocol, DataOfEveryKindOfLength_IsWritten) {
  std::string all;
  for (unsigned i = 0; i < 1024; ++i) all += static_cast<char>(i & 0xFFU);  // control bytes among them
  for (const std::size_t size : {0U, 1U, 2U, 255U, 256U, 257U, 1023U, 1024U}) {
    EXPECT_EQ(kACK, exchange(dataRecord(0, all.substr(0, size)))) << size;
    EXPECT_EQ("write 0 " + std::to_string(size), calls().back());
    EXPECT_EQ(all.substr(0, size), terminal_.system.content().substr(0, size)) << size;
  }
}

TEST_F(Protocol, DataHeader_IsBigEndian) {
  EXPECT_EQ(kACK, exchange(dataRecord(0x01020304, "abc")));
  EXPECT_EQ(kACK, exchange(dataRecord(0xFFFFFFFF, "")));
  EXPECT_EQ((Lines{"write 16909060 3", "write 4294967295 0"}), calls());
}

TEST_F(Protocol, DataLength1025_IsTooLongAndNotRead) {
  const std::string data(1025 + 2, 'x');
  EXPECT_EQ(kEOT, exchange(bytes("\x02W\x04\x01\0\0\0\0") + data));
  EXPECT_EQ(-4, result());
  EXPECT_EQ(Lines{}, calls());
  EXPECT_EQ(data.size(), terminal_.line.unread());
}

TEST_F(Protocol, ThreeFailedRecordsInARow_EndWithMinusThree) {
  const std::string failed[] = {damaged(textRecord('M', "a")), damaged(signalRecord('S')), damaged(dataRecord(0, "a")),
                                "\x02X"};
  for (const std::string& record : failed) {
    Terminal terminal;
    EXPECT_EQ(kNAK, terminal.exchange(record));
    EXPECT_EQ(kNAK, terminal.exchange(record));
    EXPECT_EQ(kGoesOn, terminal.line.result());
    EXPECT_EQ(kEOT, terminal.exchange(record));
    EXPECT_EQ(-3, terminal.line.result());
  }
}

TEST_F(Protocol, RightRecord_SetsTheCountBack) {
  const std::string wrong = damaged(dataRecord(0, "abc"));
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(kNAK + kNAK, exchange(wrong + wrong));
    EXPECT_EQ(kACK, exchange(dataRecord(0, "abc")));
  }
}

TEST_F(Protocol, EnquiryNakAndIgnoredBytes_LeaveTheCountAsItIs) {
  EXPECT_EQ(kNAK, exchange("\x02X"));
  EXPECT_EQ(kParameterRecord + kParameterRecord, exchange("\x05~\x15"));
  EXPECT_EQ(kNAK, exchange("\x02X"));
  EXPECT_EQ(kParameterRecord + kParameterRecord, exchange("\x15~\x05"));
  EXPECT_EQ(kEOT, exchange("\x02X"));
  EXPECT_EQ(-3, result());
}

TEST_F(Protocol, EveryRefusal_EndsWithMinusFive) {
  const struct {
    std::string refuse;
    std::string record;
  } cases[] = {{"open", openRecord("a")},   {"write", dataRecord(0, "a")}, {"close", signalRecord('C')},
               {"R", textRecord('R', "a")}, {"M", textRecord('M', "a")},   {"S", signalRecord('S')},
               {"U", signalRecord('U')}};
  for (const auto& item : cases) {
    Terminal terminal(item.refuse);
    EXPECT_EQ(kEOT, terminal.exchange(item.record + signalRecord('S'))) << item.refuse;
    EXPECT_EQ(-5, terminal.line.result()) << item.refuse;
    EXPECT_EQ(1U, terminal.system.calls().size()) << item.refuse;
  }
}

TEST_F(Protocol, ReadingThatFailsInARecord_CountsAsFailed) {
  for (const State& state : kStates) {
    for (const int got : {-3, 0}) {
      Terminal terminal;
      EXPECT_EQ("", terminal.exchange(state.bytes)) << state.name;
      EXPECT_EQ(kNAK, terminal.line.fail(got)) << state.name;
      EXPECT_EQ(kACK, terminal.exchange(signalRecord('S'))) << state.name;
      EXPECT_EQ(Lines{"S"}, terminal.system.calls()) << state.name;
    }
  }
}

TEST_F(Protocol, ShortReadingOfFixedSize_CountsAsFailed) {
  for (const std::string& begun : {std::string("\x02S"), bytes("\x02W"), bytes("\x02W\0\1\0\0\0\0")}) {
    Terminal terminal;
    EXPECT_EQ("", terminal.exchange(begun));
    EXPECT_EQ(kNAK, terminal.line.fail(2));
  }
}

TEST_F(Protocol, ReadingThatEndsTheDownloadInARecord_IsAnsweredWithEOT) {
  for (const State& state : kStates) {
    for (const int got : {-2, -4, -5, -6}) {
      Terminal terminal;
      EXPECT_EQ("", terminal.exchange(state.bytes)) << state.name;
      EXPECT_EQ(kEOT, terminal.line.fail(got)) << state.name;
      EXPECT_EQ(got, terminal.line.result()) << state.name;
    }
  }
}

TEST_F(Protocol, OtherResultsOfAReadingInARecord_AreNotAnswered) {
  for (const int got : {-1, -7}) {
    Terminal terminal;
    EXPECT_EQ(kNAK + kNAK, terminal.exchange("\x02X\x02X"));
    EXPECT_EQ("", terminal.exchange("\x02Mab"));
    EXPECT_EQ("", terminal.line.fail(got));
    EXPECT_EQ(kEOT, terminal.exchange("\x02X"));  // and leave the count as it is
  }
}

TEST_F(Protocol, AnyFailureOutsideARecord_EndsWithMinusThreeWithoutAReply) {
  for (const std::string& begun : {std::string(), std::string("\x02")}) {
    for (const int got : {-3, -2, 0, -4, -1}) {
      Terminal terminal;
      EXPECT_EQ("", terminal.exchange(begun));
      EXPECT_EQ("", terminal.line.fail(got)) << got;
      EXPECT_EQ(-3, terminal.line.result()) << got;
    }
  }
}

TEST_F(Protocol, SilenceIsWithoutLimit_BetweenRecordsAlone) {
  RecordingSystem system;
  tessolan::Conversation conversation(system);
  EXPECT_TRUE(conversation.isIdle());
  for (const State& state : kStates) {
    tessolan::Conversation begun(system);
    begun.wanted().place[0] = tessolan::kSTX;
    EXPECT_EQ(kGoesOn, begun.take(1).result);
    EXPECT_FALSE(begun.isIdle());
    begun.wanted().place[0] = static_cast<unsigned char>(state.bytes[1]);
    EXPECT_EQ(kGoesOn, begun.take(1).result);
    EXPECT_FALSE(begun.isIdle()) << state.name;
    static_cast<void>(begun.take(0));
    EXPECT_TRUE(begun.isIdle()) << state.name;
  }
}
