#include "tools/jxpush/serial_sender.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <utility>

#include "tests/unit/tools/jxpush/scripted_terminal.h"
#include "tests/unit/tools/jxpush/test_files.h"
#include "tools/jxpush/problem.h"

using namespace jxpush;

namespace {

using Fate = ScriptedTerminal::Fate;

class SerialSenderTest : public testing::Test {
 protected:
  SerialSenderTest() { files_.add("hello.zip", content_); }

  // The code that sending ends with.
  ExitCode send(int waitSeconds = 0) {
    outcome_ = {};
    observer_.again = 0;
    try {
      SerialSender(terminal_, observer_, outcome_).send(files_.files(), waitSeconds);
      return ExitCode::kSent;
    } catch (const Problem& problem) {
      message_ = problem.what();
      return problem.code();
    }
  }

  // The `nth` record of `letter` meets `fate`; each further call adds to that.
  void meets(char letter, int nth, Fate fate) {
    fates_[{letter, nth}] = std::move(fate);
    terminal_.fate = [this](char which, int count) {
      const auto found = fates_.find({which, count});
      return found == fates_.end() ? nullptr : &found->second;
    };
  }

  void expectWhole() {
    EXPECT_EQ(std::vector<std::string>{content_}, terminal_.files());
    EXPECT_TRUE(terminal_.ended());
    EXPECT_EQ(0, terminal_.result());
    expectCounts(terminal_.recordCount(), terminal_.repeatCount());
  }

  void expectCounts(std::size_t records, std::size_t again) {
    EXPECT_EQ(records, outcome_.records);
    EXPECT_EQ(again, outcome_.sentAgain);
    EXPECT_EQ(again, observer_.again);
  }

  // The terminal has dropped the download.
  void expectDropped() {
    EXPECT_TRUE(terminal_.ended());
    EXPECT_EQ(-4, terminal_.result());
  }

  std::string content_ = mixedBytes(3000);
  TestFiles files_;
  ScriptedTerminal terminal_;
  RecordingObserver observer_;
  Outcome outcome_;
  std::string message_;
  std::map<std::pair<char, int>, Fate> fates_;
};

}  // namespace

TEST_F(SerialSenderTest, OneFile_IsSentInOrder) {
  EXPECT_EQ(ExitCode::kSent, send());
  EXPECT_EQ("EOMWWWECE.", terminal_.letters());
  EXPECT_EQ(std::vector<std::string>{"hello.zip: 0 %"}, terminal_.messages());
  EXPECT_EQ(3000U, observer_.last);
  expectCounts(6, 0);
  expectWhole();
}

TEST_F(SerialSenderTest, MoreFiles_AreSentOneAfterTheOther) {
  files_.add("empty", "");
  files_.add("three.zip", mixedBytes(1024));
  EXPECT_EQ(ExitCode::kSent, send());
  EXPECT_EQ("EOMWWWECEOMCEOMWECE.", terminal_.letters());
  EXPECT_EQ((std::vector<std::string>{content_, "", mixedBytes(1024)}), terminal_.files());
  EXPECT_EQ((std::vector<std::string>{"hello.zip (1 of 3): 0 %", "empty (2 of 3): 100 %", "three.zip (3 of 3): 0 %"}),
            terminal_.messages());
}

TEST_F(SerialSenderTest, LargeFile_IsLookedAfterEvery64Records) {
  files_.add("large", mixedBytes(65UL * 1024));
  EXPECT_EQ(ExitCode::kSent, send());
  EXPECT_EQ(mixedBytes(65UL * 1024), terminal_.files().at(1));
  EXPECT_EQ("EOMWWWECEOM" + std::string(64, 'W') + "EWECE.", terminal_.letters());
}

TEST_F(SerialSenderTest, TerminalWithSmallerRecords_GetsThem) {
  static const Fate kSmall{true, "\x02,,,,,,,512,,\x03\x30\x9E"};
  terminal_.fate = [](char letter, int) { return letter == 'E' ? &kSmall : nullptr; };
  EXPECT_EQ(ExitCode::kSent, send());
  EXPECT_EQ("EOMWWWWWWECE.", terminal_.letters());
  expectWhole();
}

TEST_F(SerialSenderTest, TerminalThatNeverAnswers_IsGivenUp) {
  static const Fate kSilent{false, ""};
  terminal_.fate = [](char, int) { return &kSilent; };
  EXPECT_EQ(ExitCode::kGaveUp, send());
  EXPECT_EQ("the terminal did not answer within 0 s", message_);
  EXPECT_EQ("E", terminal_.letters());  // nothing to be dropped
}

TEST_F(SerialSenderTest, EnquiryUntilAnswered_GoesOnAfterNoise) {
  static const Fate kNoise{false, "\xFF\x06\x02ZOR"};
  terminal_.fate = [](char letter, int nth) { return letter == 'E' && nth < 4 ? &kNoise : nullptr; };
  EXPECT_EQ(ExitCode::kSent, send(3600));
  expectWhole();
}

// Each record once: refused, its answer lost, the record lost, its answer damaged, an answer too many, a refusal
// before the acceptance.
class EachRecordTest : public SerialSenderTest, public testing::WithParamInterface<char> {};
INSTANTIATE_TEST_SUITE_P(Letters, EachRecordTest, testing::Values('O', 'M', 'W', 'C'));

TEST_P(EachRecordTest, Refused_IsRepeated) {
  meets(GetParam(), 1, {false, "\x15"});
  EXPECT_EQ(ExitCode::kSent, send());
  expectCounts(7, 1);
  expectWhole();
}

TEST_P(EachRecordTest, LostAnswer_NeverMakesASecondFile) {
  meets(GetParam(), 1, {true, ""});
  EXPECT_EQ(ExitCode::kSent, send());
  expectWhole();
}

TEST_P(EachRecordTest, DamagedAnswer_NeverMakesASecondFile) {
  for (const std::string answer : {"\x07", "\x05", "\xFF"}) {
    terminal_.reset();
    meets(GetParam(), 1, {true, answer});
    EXPECT_EQ(ExitCode::kSent, send());
    expectWhole();
  }
}

TEST_P(EachRecordTest, InventedEnd_IsSeenThrough) {
  meets(GetParam(), 1, {true, "\x04"});
  EXPECT_EQ(ExitCode::kSent, send());
  expectWhole();
}

TEST_P(EachRecordTest, RefusalBeforeTheAcceptance_NeverMakesASecondFile) {
  meets(GetParam(), 1, {true, "\x15\x06"});
  EXPECT_EQ(ExitCode::kSent, send());
  expectWhole();
}

TEST_P(EachRecordTest, AnswerTooMany_IsNoticed) {
  meets(GetParam(), 1, {true, "\x06\x06"});
  EXPECT_EQ(ExitCode::kSent, send());
  expectWhole();
}

TEST_P(EachRecordTest, RefusedForEver_IsGivenUpAndDropped) {
  static const Fate kRefused{false, "\x15"};
  terminal_.fate = [](char letter, int) { return letter == GetParam() ? &kRefused : nullptr; };
  EXPECT_EQ(ExitCode::kGaveUp, send());
  const std::size_t before = std::string("OMWWWC").find(GetParam());
  expectCounts(before + 8, 7);
  if (GetParam() != 'W') expectDropped();
}

TEST_P(EachRecordTest, EndOfTheTerminal_IsReported) {
  meets(GetParam(), 1, {false, "\x04"});
  const auto plain = terminal_.fate;
  // After it the terminal is silent.
  static const Fate kSilent{false, ""};
  bool ended = false;
  terminal_.fate = [&](char letter, int nth) -> const Fate* {
    if (ended) return &kSilent;
    const Fate* const fate = plain(letter, nth);
    ended = fate != nullptr;
    return fate;
  };
  EXPECT_EQ(ExitCode::kRefused, send());
}

TEST_P(EachRecordTest, TerminalThatFallsSilent_IsGivenUp) {
  static const Fate kSilent{false, ""};
  bool silent = false;
  terminal_.fate = [&](char letter, int) {
    silent = silent || letter == GetParam();
    return silent ? &kSilent : nullptr;
  };
  EXPECT_EQ(ExitCode::kGaveUp, send());
  EXPECT_EQ("the terminal does not answer any more", message_);
}

TEST_F(SerialSenderTest, LostOpenRecord_EndsTheDownloadInsteadOfGuessing) {
  meets('O', 1, {false, ""});
  EXPECT_EQ(ExitCode::kRefused, send());
  EXPECT_EQ(-5, terminal_.result());
  EXPECT_TRUE(terminal_.files().empty());
}

TEST_F(SerialSenderTest, LateAnswerToOpen_CountsAsItsAnswer) {
  // Silence first; the answer comes with that to the enquiry.
  static const Fate kLate{true, ""};
  static const Fate kBoth{true, "\x06\x02ZOR,JXAPP,XDL,p,,,,1024,,\x03\x57\xCF"};
  terminal_.fate = [](char letter, int nth) -> const Fate* {
    if (letter == 'O') return &kLate;
    return letter == 'E' && nth == 2 ? &kBoth : nullptr;
  };
  EXPECT_EQ(ExitCode::kSent, send());
  EXPECT_EQ("EOEMWWWECE.", terminal_.letters());  // no empty data record was needed
  expectWhole();
}

TEST_F(SerialSenderTest, InventedAcknowledgement_RepeatsTheGroup) {
  // The first data record is lost; an ACK that nobody sent stands for its answer, and the true NAK comes with the next.
  meets('W', 1, {false, "\x06\x15"});
  EXPECT_EQ(ExitCode::kSent, send());
  EXPECT_EQ("EOMWEWWEWWWECE.", terminal_.letters());
  expectCounts(9, 3);
  expectWhole();
}

TEST_F(SerialSenderTest, LargeGroupSentOnceMore_CountsEachOfItsRecords) {
  content_ = mixedBytes(64UL * 1024);
  files_.clear();
  files_.add("large", content_);
  meets('W', 64, {true, "\x06\x06"});
  EXPECT_EQ(ExitCode::kSent, send());
  EXPECT_EQ("EOM" + std::string(64, 'W') + "E" + std::string(64, 'W') + "ECE.", terminal_.letters());
  expectCounts(2 + 64 + 64 + 1, 64);
  expectWhole();
}

TEST_F(SerialSenderTest, RecordThatFailsInAGroupSentOnceMore_CountsEachTime) {
  meets('W', 3, {true, "\x06\x06"});
  meets('W', 5, {false, "\x15"});
  EXPECT_EQ(ExitCode::kSent, send());
  EXPECT_EQ("EOMWWWEWWEWWECE.", terminal_.letters());
  expectCounts(10, 4);
  expectWhole();
}

TEST_F(SerialSenderTest, AnswersTooManyForEver_AreGivenUpAndCounted) {
  static const Fate kTwo{true, "\x06\x06"};
  for (const char which : {'W', 'C'}) {
    terminal_.reset();
    terminal_.fate = [which](char letter, int) { return letter == which ? &kTwo : nullptr; };
    EXPECT_EQ(ExitCode::kGaveUp, send());
    EXPECT_EQ("the line makes up answers", message_);
    if (which == 'W') expectCounts(2 + 8 * 3, 7 * 3);
    if (which == 'C') expectCounts(5 + 8, 7);
  }
}

TEST_F(SerialSenderTest, InventedAnswerThenALostRecord_StillSendsTheWholeFile) {
  // The surplus answer to the second record must not stand for the third, which the terminal never sees.
  meets('W', 2, {true, "\x06\x06"});
  meets('W', 3, {false, ""});
  EXPECT_EQ(ExitCode::kSent, send());
  expectWhole();
}

TEST_F(SerialSenderTest, UnconfirmedEnd_IsRepeatedWhileTheTerminalAnswers) {
  meets('.', 1, {false, ""});
  EXPECT_EQ(ExitCode::kSent, send());
  EXPECT_EQ("EOMWWWECE.E.", terminal_.letters());
  expectWhole();
}

TEST_F(SerialSenderTest, UnconfirmedEndOfASilentTerminal_SaysSo) {
  meets('.', 1, {true, ""});
  EXPECT_EQ(ExitCode::kGaveUp, send());
  EXPECT_EQ("the terminal has all files, but did not confirm the end; its screen says whether it installed them",
            message_);
  EXPECT_EQ(0, terminal_.result());
}

TEST_F(SerialSenderTest, BytesBeforeTheLastAnswer_HideNoConfirmation) {
  for (const char* noise : {"\x06", "\x15", "\x06\xFFnoise"}) {
    terminal_.reset();
    meets('.', 1, {true, noise + std::string("\x04")});
    EXPECT_EQ(ExitCode::kSent, send()) << noise;
    expectWhole();
  }
}

TEST_F(SerialSenderTest, EndInWhatBeginsAsAParameterRecord_ConfirmsNothing) {
  meets('.', 1, {true, "\x02\x04"});
  EXPECT_EQ(ExitCode::kGaveUp, send());
  EXPECT_EQ(0, terminal_.result());
}

TEST_F(SerialSenderTest, InterruptBeforeTheFirstAnswer_SendsNothingFurther) {
  terminal_.interrupted = [] { return true; };
  EXPECT_EQ(ExitCode::kInterrupted, send());
  EXPECT_EQ("E", terminal_.letters());
}

TEST_F(SerialSenderTest, InterruptAnywhere_DropsTheDownload) {
  int interrupts = 0;
  for (int after = 29;; ++after) {
    terminal_.reset();
    int reads = 0;
    terminal_.interrupted = [&] { return ++reads > after; };
    const ExitCode code = send();
    if (code == ExitCode::kSent) break;
    ASSERT_EQ(ExitCode::kInterrupted, code) << after;
    expectDropped();
    ++interrupts;
  }
  EXPECT_LT(60, interrupts);
}

TEST_F(SerialSenderTest, HangUpAnywhere_IsGivenUp) {
  int hangUps = 0;
  for (int after = 0;; ++after) {
    terminal_.reset();
    int calls = 0;
    terminal_.hungUp = [&] { return ++calls > after; };
    const ExitCode code = send();
    if (code == ExitCode::kSent) break;
    ASSERT_EQ(ExitCode::kGaveUp, code) << after;
    EXPECT_EQ("the line was hung up", message_) << after;
    ++hangUps;
  }
  EXPECT_LT(60, hangUps);
}

TEST_F(SerialSenderTest, FileThatBecomesShorter_DropsTheDownload) {
  observer_.onAcknowledged = [this](std::uint64_t) { std::ofstream(files_.path("hello.zip")) << "short"; };
  EXPECT_EQ(ExitCode::kInput, send());
  expectDropped();
}

TEST_F(SerialSenderTest, FileThatChanges_DropsTheDownload) {
  observer_.onAcknowledged = [this](std::uint64_t bytes) {
    if (bytes == 3000) std::ofstream(files_.path("hello.zip"), std::ios::app) << "more";
  };
  EXPECT_EQ(ExitCode::kInput, send());
  expectDropped();
}

TEST_F(SerialSenderTest, Messages_CarryThePercentage) {
  SerialTimes times;
  times.messageMs = 0;
  SerialSender(terminal_, observer_, outcome_, times).send(files_.files(), 0);
  EXPECT_EQ((std::vector<std::string>{"hello.zip: 0 %", "hello.zip: 34 %", "hello.zip: 68 %", "hello.zip: 100 %"}),
            terminal_.messages());
}
