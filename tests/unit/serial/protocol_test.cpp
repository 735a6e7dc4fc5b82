#include "tests/unit/serial/download.h"

#include <gtest/gtest.h>

#include "tests/unit/serial/calls.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kSession = openRecord("hello.zip") + dataRecord(0, "first ") + textRecord('M', "half") +
                             dataRecord(6, "second") + signalRecord('C') + "\x04";
const Lines kSessionCalls = {"open hello.zip", "write 0 6", "M half", "write 6 6", "close"};

}  // namespace

TEST(Protocol, Enquiry_YieldsTheParameterRecord) {
  Download download;
  EXPECT_EQ(bytes("\x02"
                  "ZOR,JXAPP,XDL,p,,,,1024,,"
                  "\x03\x57\xCF"),
            download.exchange("\x05", 29));
  EXPECT_EQ("", download.line.pending());
}

TEST(Protocol, RecordsAsAHostSendsThem_AreUnderstood) {
  Download download;
  EXPECT_EQ("\x06", download.exchange(bytes("\x02O                                       a.zip\x03\x49"
                                            "\x35")));
  EXPECT_EQ("\x06", download.exchange(bytes("\x02W\0\5\0\0\1\2hello\xF0"
                                            "\xF3")));
  EXPECT_EQ("\x06", download.exchange(bytes("\x02M50 %\x03\xCD"
                                            "\xD3")));
  EXPECT_EQ("\x06", download.exchange(bytes("\x02S\x03\x6A"
                                            "\x0F")));
  EXPECT_EQ("\x06", download.exchange(bytes("\x02U\x03\x7E"
                                            "\x0F")));
  EXPECT_EQ((Lines{"open a.zip", "write 258 5", "M 50 %", "S", "U"}), download.system.calls());
}

TEST(Protocol, NakFromTheHost_YieldsTheParameterRecordAtAnyIdleMoment) {
  Download download;
  EXPECT_EQ(kParameterRecord, download.exchange("\x15", 29));
  EXPECT_EQ("\x06", download.exchange(signalRecord('S')));
  EXPECT_EQ(kParameterRecord, download.exchange("\x15", 29));
}

TEST(Protocol, Close_IsFourBytesBehindSTX) {
  Download download;
  EXPECT_EQ("\x06", download.exchange(bytes("\x02\x43\x03\x8A\x0C")));
  EXPECT_EQ(Lines{"close"}, download.system.calls());
}

TEST(Protocol, WholeSession_CallsTheSystemInOrderAndEndsWithEOT) {
  Download download;
  EXPECT_EQ("\x06\x06\x06\x06\x06\x04", download.exchange(kSession, 6));
  EXPECT_EQ(0, download.result());
  EXPECT_EQ(kSessionCalls, download.system.calls());
  EXPECT_EQ("first second", download.system.content());
  EXPECT_EQ(-1, download.receiver.fd);
}

TEST(Protocol, SessionByteByByte_EndsTheSame) {
  Download download;
  for (const char byte : kSession) {
    download.feed(std::string(1, byte));
  }
  EXPECT_EQ("\x06\x06\x06\x06\x06\x04", download.line.receive(6));
  EXPECT_EQ(0, download.result());
  EXPECT_EQ(kSessionCalls, download.system.calls());
}

TEST(Protocol, SessionSplitAtEveryPlace_EndsTheSame) {
  for (std::size_t at = 1; at < kSession.size(); ++at) {
    Download download;
    download.feed(kSession.substr(0, at));
    ASSERT_TRUE(download.line.send(kSession.substr(at)));
    EXPECT_EQ("\x06\x06\x06\x06\x06\x04", download.line.receive(6)) << at;
    EXPECT_EQ(0, download.result()) << at;
    EXPECT_EQ(kSessionCalls, download.system.calls()) << at;
  }
}

TEST(Protocol, EndWithoutAFile_IsSuccess) {
  Download download;
  EXPECT_EQ("\x04", download.exchange("\x04"));
  EXPECT_EQ(0, download.result());
  EXPECT_EQ(Lines{}, download.system.calls());
}

TEST(Protocol, EveryOtherByteBetweenRecords_IsIgnored) {
  Download download;
  std::string noise;
  for (int byte = 0; byte < 256; ++byte) {
    if (byte != 0x02 && byte != 0x04 && byte != 0x05 && byte != 0x15) noise += static_cast<char>(byte);
  }
  EXPECT_EQ("\x06", download.exchange(noise + signalRecord('U')));
  EXPECT_EQ(Lines{"U"}, download.system.calls());
}

TEST(Protocol, EveryTextLetter_GoesToItsOperationOrNone) {
  const struct {
    char letter;
    Lines calls;
  } cases[] = {{'O', {"open "}}, {'R', {"R ab"}}, {'M', {"M ab"}}, {'$', {}}, {'D', {}},
               {'F', {}},        {'I', {}},       {'L', {}},       {'P', {}}, {'T', {}}};
  for (const auto& item : cases) {
    Download download;
    EXPECT_EQ("\x15", download.exchange(damaged(textRecord(item.letter, "ab")))) << item.letter;
    EXPECT_EQ(Lines{}, download.system.calls()) << item.letter;
    EXPECT_EQ("\x06", download.exchange(textRecord(item.letter, "ab"))) << item.letter;
    EXPECT_EQ(item.calls, download.system.calls()) << item.letter;
  }
}

TEST(Protocol, EverySignalLetter_GoesToItsOperation) {
  Download download;
  EXPECT_EQ("\x06\x06\x06", download.exchange(signalRecord('C') + signalRecord('S') + signalRecord('U'), 3));
  EXPECT_EQ((Lines{"close", "S", "U"}), download.system.calls());
}

TEST(Protocol, SignalWithAnotherByteThanETX_CountsAsFailed) {
  Download download;
  EXPECT_EQ("\x15", download.exchange(bytes("\x02"
                                            "C\x04\x8A\x0C")));
  EXPECT_EQ(Lines{}, download.system.calls());
}

TEST(Protocol, EveryUnknownLetter_CountsAsFailedWithoutReadingOn) {
  const std::string known = "OWCRMSU$DFILPT";
  Download download;
  for (int letter = 0; letter < 256; ++letter) {
    if (known.find(static_cast<char>(letter)) != std::string::npos) continue;
    // The enquiry right behind it is no part of a record.
    const std::string record = "\x02" + std::string(1, static_cast<char>(letter)) + "\x05";
    EXPECT_EQ("\x15" + kParameterRecord, download.exchange(record, 30)) << letter;
    EXPECT_EQ("\x06", download.exchange(signalRecord('S'))) << letter;
  }
}

TEST(Protocol, BytesBehindAnUnknownLetter_AreIdleBytes) {
  Download download;
  EXPECT_EQ("\x15", download.exchange(bytes("\x02Xabc\x03zz")));
  EXPECT_EQ("\x06", download.exchange(signalRecord('S')));
}

TEST(Protocol, FileName_BeginsAtThe40thByte) {
  const struct {
    std::size_t size;
    std::string name;
  } cases[] = {{0, ""}, {1, ""}, {38, ""}, {39, ""}, {40, "y"}, {41, "yy"}, {252, std::string(213, 'y')}};
  for (const auto& item : cases) {
    Download download;
    std::string text(item.size, 'y');
    for (std::size_t i = 0; i < text.size() && i < 39; ++i) text[i] = 'x';
    EXPECT_EQ("\x06", download.exchange(textRecord('O', text))) << item.size;
    EXPECT_EQ(Lines{"open " + item.name}, download.system.calls()) << item.size;
  }
}

TEST(Protocol, TextWithEveryByteButETX_ReachesTheSystem) {
  std::string text;
  for (int byte = 1; byte < 252; ++byte) {
    if (byte != 3) text += static_cast<char>(byte);
  }
  Download download;
  EXPECT_EQ("\x06", download.exchange(textRecord('M', text)));
  EXPECT_EQ(Lines{"M " + text}, download.system.calls());
}

TEST(Protocol, ZeroByteInAText_EndsWhatTheSystemSees) {
  Download download;
  EXPECT_EQ("\x06", download.exchange(textRecord('M', bytes("ab\0cd"))));
  EXPECT_EQ(Lines{"M ab"}, download.system.calls());
}

TEST(Protocol, TextOf253Bytes_IsTooLong) {
  Download download;
  EXPECT_EQ("\x06", download.exchange(textRecord('M', std::string(252, 'x'))));
  EXPECT_EQ("\x04", download.exchange(textRecord('M', std::string(253, 'x'))));
  EXPECT_EQ(-4, download.result());
}

TEST(Protocol, TextWithoutEnd_IsTooLong) {
  Download download;
  EXPECT_EQ("\x04", download.exchange("\x02M" + std::string(255, 'x')));
  EXPECT_EQ(-4, download.result());
}

TEST(Protocol, DataOfEveryKindOfLength_IsWritten) {
  Download download;
  std::string all;
  for (unsigned i = 0; i < 1024; ++i) all += static_cast<char>(i & 0xFFU);  // control bytes among them
  for (const std::size_t size : {0U, 1U, 2U, 255U, 256U, 257U, 1023U, 1024U}) {
    EXPECT_EQ("\x06", download.exchange(dataRecord(0, all.substr(0, size)))) << size;
    EXPECT_EQ(all.substr(0, size), download.system.content().substr(0, size)) << size;
  }
}

TEST(Protocol, DataHeader_IsBigEndian) {
  Download download;
  EXPECT_EQ("\x06", download.exchange(dataRecord(0x01020304, "abc")));
  EXPECT_EQ("\x06", download.exchange(dataRecord(0xFFFFFFFF, "")));
  EXPECT_EQ((Lines{"write 16909060 3", "write 4294967295 0"}), download.system.calls());
}

TEST(Protocol, DataLength1025_IsTooLongAndNotRead) {
  Download download;
  const std::string data(1025 + 2, 'x');
  EXPECT_EQ("\x04", download.exchange(bytes("\x02W\x04\x01\0\0\0\0") + data));
  EXPECT_EQ(-4, download.result());
  EXPECT_EQ(Lines{}, download.system.calls());
  EXPECT_EQ(static_cast<int>(data.size()), download.line.unread());
}

TEST(Protocol, ThreeWrongCheckValuesInARow_EndWithMinusThree) {
  Download download;
  const std::string wrong = damaged(signalRecord('S'));
  EXPECT_EQ("\x15", download.exchange(wrong));
  EXPECT_EQ("\x15", download.exchange(wrong));
  EXPECT_EQ("\x04", download.exchange(wrong));
  EXPECT_EQ(-3, download.result());
}

TEST(Protocol, RightRecord_SetsTheCountBack) {
  Download download;
  const std::string wrong = damaged(dataRecord(0, "abc"));
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ("\x15\x15", download.exchange(wrong + wrong, 2));
    EXPECT_EQ("\x06", download.exchange(dataRecord(0, "abc")));
  }
}

TEST(Protocol, EnquiryAndNak_LeaveTheCountAsItIs) {
  for (const std::string asks : {"\x05", "\x15"}) {
    Download download;
    ASSERT_EQ("\x15", download.exchange("\x02X"));
    EXPECT_EQ(kParameterRecord + kParameterRecord, download.exchange(asks + asks, 58));
    ASSERT_EQ("\x15", download.exchange("\x02X"));
    EXPECT_EQ(kParameterRecord, download.exchange(asks, 29));
    ASSERT_EQ("\x04", download.exchange("\x02X"));
    EXPECT_EQ(-3, download.result());
  }
}

TEST(Protocol, EveryRefusal_EndsWithMinusFive) {
  const struct {
    std::string refuse;
    std::string record;
  } cases[] = {{"open", openRecord("a")},   {"write", dataRecord(0, "a")}, {"close", signalRecord('C')},
               {"R", textRecord('R', "a")}, {"M", textRecord('M', "a")},   {"S", signalRecord('S')},
               {"U", signalRecord('U')}};
  for (const auto& item : cases) {
    Download download(item.refuse);
    EXPECT_EQ("\x04", download.exchange(item.record)) << item.refuse;
    EXPECT_EQ(-5, download.result()) << item.refuse;
    EXPECT_EQ(1U, download.system.calls().size()) << item.refuse;
  }
}

TEST(Protocol, DeviceThatCannotBeOpened_GivesMinusOne) {
  Download download("", "/nonexistent/device");
  EXPECT_EQ(-1, download.result());
  EXPECT_EQ(-1, download.receiver.fd);
}

TEST(Protocol, SecondDownload_BeginsAnew) {
  Download first;
  first.exchange("\x02X\x02X", 2);
  first.receiver.requestAbort();
  EXPECT_EQ(-2, first.result());
  // The abort and the failed records of the first are forgotten.
  std::thread second;
  untilReady([&] {
    second = std::thread([&] {
      Calls::thisThreadReceives();
      EXPECT_EQ(-3, first.receiver.receive(first.line.path().c_str()));
    });
  });
  EXPECT_EQ("\x15\x15\x04", first.exchange("\x02X\x02X\x02X", 3));
  second.join();
}
