#include "tools/jxpush/serial/sender.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <utility>

#include "tests/unit/tools/jxpush/serial/scripted_terminal.h"
#include "tests/unit/tools/jxpush/test_files.h"
#include "tools/jxpush/common/problem.h"

using namespace jxpush;

namespace {

using Fate = ScriptedTerminal::Fate;
using Milliseconds = std::chrono::milliseconds;

const std::string kParameters = "\x02ZOR,JXAPP,XDL,p,,,,1024,,\x03\x57\xCF";
const Fate kSilent{false, ""};

class SerialSenderTest : public testing::Test {
 protected:
  SerialSenderTest() { files_.add("hello.zip", content_); }

  // The code that sending over `line` ends with.
  ExitCode sendOver(Line& line, int waitSeconds = 0) {
    outcome_ = {};
    observer_.again = 0;
    const Line::Time begin = line.now();
    try {
      SerialSender(line, observer_, outcome_).send(files_.files(), waitSeconds);
      message_.clear();
    } catch (const Problem& problem) {
      message_ = problem.what();
      length_ = std::chrono::duration_cast<Milliseconds>(line.now() - begin);
      return problem.code();
    }
    return ExitCode::kSent;
  }
  ExitCode send(int waitSeconds = 0) { return sendOver(terminal_, waitSeconds); }

  // The `nth` record of `letter` meets `fate`; each further call adds to that.
  void meets(char letter, int nth, Fate fate) {
    fates_[{letter, nth}] = std::move(fate);
    terminal_.fate = [this](char which, int count) {
      const auto found = fates_.find({which, count});
      return found == fates_.end() ? nullptr : &found->second;
    };
  }
  // From the `nth` record of `letter` on the terminal is silent, that record's own answer being `last`.
  void fallsSilent(char letter, int nth, const std::string& last = "") {
    terminal_.fate = [this, letter, nth, fate = Fate{false, last}](char which, int count) -> const Fate* {
      if (std::exchange(silent_, silent_ || (which == letter && count == nth))) return &kSilent;
      return silent_ ? &fate : nullptr;
    };
  }

  void expectWhole() {
    EXPECT_EQ(std::vector<std::string>{content_}, terminal_.files());
    EXPECT_TRUE(terminal_.ended());
    EXPECT_EQ(0, terminal_.result());
    // The first close is for a file that a killed sender has left open, not one that is sent again.
    expectCounts(terminal_.recordCount(), terminal_.repeatCount() - 1);
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
  Milliseconds length_{0};
  std::map<std::pair<char, int>, Fate> fates_;
  bool silent_ = false;
};

// A line on which another program prints, without a pause.
class ConsoleLine : public Line {
 public:
  void write(const void* /*data*/, std::size_t /*size*/) override {}
  void offer(unsigned char /*byte*/) override {}
  int readByte(int timeoutMs) override {
    now_ += Milliseconds(std::min(timeoutMs, 10));
    return timeoutMs < 10 ? -1 : "login: "[at_++ % 7];
  }
  Time now() override { return now_; }
  void ignoreInterrupts() override {}

 private:
  Time now_{};
  std::size_t at_ = 0;
};

}  // namespace

TEST_F(SerialSenderTest, OneFile_IsSentInOrder) {
  EXPECT_EQ(ExitCode::kSent, send());
  EXPECT_EQ("EEECEOEMEWEWEWEECE.", terminal_.letters());
  EXPECT_EQ(std::vector<std::string>{"hello.zip: 0 %"}, terminal_.messages());
  EXPECT_EQ(3000U, observer_.last);
  expectCounts(7, 0);
  expectWhole();
}

TEST_F(SerialSenderTest, MoreFiles_AreSentOneAfterTheOther) {
  files_.add("empty", "");
  files_.add("three.zip", mixedBytes(1024));
  EXPECT_EQ(ExitCode::kSent, send());
  EXPECT_EQ("EEECEOEMEWEWEWEECEOEMEWEECEOEMEWEECE.", terminal_.letters());
  EXPECT_EQ((std::vector<std::string>{content_, "", mixedBytes(1024)}), terminal_.files());
  EXPECT_EQ((std::vector<std::string>{"hello.zip (1 of 3): 0 %", "empty (2 of 3): 100 %", "three.zip (3 of 3): 0 %"}),
            terminal_.messages());
}

TEST_F(SerialSenderTest, TerminalWithSmallerRecords_GetsThem) {
  static const Fate kSmall{true, "\x02,,,,,,,512,,\x03\x30\x9E"};
  terminal_.fate = [](char letter, int) { return letter == 'E' ? &kSmall : nullptr; };
  EXPECT_EQ(ExitCode::kSent, send());
  EXPECT_EQ("EEECEOEMEWEWEWEWEWEWEECE.", terminal_.letters());
  expectWhole();
}

// --- the first contact ---

TEST_F(SerialSenderTest, TerminalThatNeverAnswers_IsGivenUpAfterTheWaitAndWithinASecondMore) {
  terminal_.fate = [](char, int) { return &kSilent; };
  for (const int seconds : {0, 1, 2, 60, 3600}) {
    const std::size_t before = terminal_.letters().size();
    EXPECT_EQ(ExitCode::kGaveUp, send(seconds));
    EXPECT_EQ("the terminal did not answer within " + std::to_string(seconds) + " s", message_);
    EXPECT_LE(Milliseconds(seconds * 1000), length_);
    EXPECT_GE(Milliseconds(seconds * 1000 + 1000), length_);
    // Every 1.2 s: further apart than the second after which the terminal drops a record that it is still in.
    EXPECT_EQ(std::max(1, (seconds * 1000 + 1199) / 1200), static_cast<int>(terminal_.letters().size() - before));
  }
  EXPECT_EQ(std::string::npos, terminal_.letters().find_first_not_of('E'));  // nothing to be dropped
}

TEST_F(SerialSenderTest, ConsoleOnTheLine_IsGivenUpAsSoon) {
  for (const int seconds : {0, 1, 60}) {
    ConsoleLine console;
    EXPECT_EQ(ExitCode::kGaveUp, sendOver(console, seconds));
    EXPECT_EQ("the terminal did not answer within " + std::to_string(seconds) +
                  " s; what came is no answer of a terminal, but of a console, say",
              message_);
    EXPECT_LE(Milliseconds(seconds * 1000), length_);
    EXPECT_GE(Milliseconds(seconds * 1000 + 1000), length_);
  }
}

TEST_F(SerialSenderTest, LineThatTakesNoBytesYet_IsWaitedFor) {
  terminal_.opensAt = terminal_.now() + std::chrono::minutes(59);
  EXPECT_EQ(ExitCode::kSent, send(3600));
  expectWhole();
  terminal_.reset();
  terminal_.opensAt = terminal_.now() + std::chrono::minutes(61);
  EXPECT_EQ(ExitCode::kGaveUp, send(3600));
  EXPECT_EQ("the terminal did not answer within 3600 s", message_);
}

TEST_F(SerialSenderTest, EnquiryUntilAnswered_GoesOnAfterNoise) {
  static const Fate kNoise{false, "\xFF\x06\x04\x02ZOR"};
  terminal_.fate = [](char letter, int nth) { return letter == 'E' && nth < 4 ? &kNoise : nullptr; };
  EXPECT_EQ(ExitCode::kSent, send(3600));
  expectWhole();
}

TEST_F(SerialSenderTest, EndBehindTheFirstAnswer_IsThatOfADownloadBefore) {
  meets('E', 1, {true, kParameters + "\x04"});
  EXPECT_EQ(ExitCode::kSent, send(3600));
  expectWhole();
}

// --- a record's answer ---

// Records that can be sent again: they change nothing then.
class EachRecordTest : public SerialSenderTest, public testing::WithParamInterface<char> {
 protected:
  // The first of this file.
  static int nth() { return GetParam() == 'C' ? 2 : 1; }
};
INSTANTIATE_TEST_SUITE_P(Letters, EachRecordTest, testing::Values('M', 'W', 'C'));

TEST_P(EachRecordTest, WhateverTheAnswer_IsSentAgainUntilItIsAcknowledged) {
  const Fate fates[] = {{false, "\x15"},    {false, ""},         {true, ""},          {true, "\x07"},
                        {true, "\x05"},     {true, "\xFF"},      {true, "\x04"},      {true, "\x15"},
                        {true, "\x15\x06"}, {false, "\x07\x15"}, {true, kParameters}, {true, kParameters + "\x06"}};
  for (const Fate& fate : fates) {
    terminal_.reset();
    meets(GetParam(), nth(), fate);
    meets(GetParam(), nth() + 1, {false, "\x15"});
    EXPECT_EQ(ExitCode::kSent, send()) << fate.answer;
    EXPECT_EQ(2U, outcome_.sentAgain);
    expectWhole();
  }
}

TEST_P(EachRecordTest, AnswerTooMany_PutsItAndTheNextInDoubt) {
  for (const std::string answer : {"\x06\x06", "\x06\x15", "\x06\x04", "\x06noise"}) {
    terminal_.reset();
    meets(GetParam(), nth(), {answer != "\x06\x15", answer});
    EXPECT_EQ(ExitCode::kSent, send());
    const std::size_t again = GetParam() == 'C' ? 1 : 2;  // only an enquiry is behind C
    expectCounts(7 + again, again);
    expectWhole();
  }
}

TEST_P(EachRecordTest, DamagedAnswerToTheEnquiryAhead_PutsItAndTheOneBeforeInDoubt) {
  const int enquiry = GetParam() == 'M' ? 5 : GetParam() == 'W' ? 6 : 10;  // the one ahead of the first of its kind
  for (const std::string& answer :
       {std::string(), kParameters.substr(1), kParameters.substr(0, 28), "\x06" + kParameters}) {
    terminal_.reset();
    meets('E', enquiry, {true, answer});
    EXPECT_EQ(ExitCode::kSent, send());
    EXPECT_EQ(GetParam() == 'C' ? 1U : 2U, outcome_.sentAgain);  // in front of C there is just an enquiry
    EXPECT_EQ(std::vector<std::string>{content_}, terminal_.files());
  }
}

TEST_P(EachRecordTest, RefusedForEver_IsGivenUpAndDropped) {
  static const Fate kRefused{false, "\x15"};
  terminal_.fate = [](char letter, int count) {
    return letter == GetParam() && (count >= nth()) && !(letter == 'W' && count > 8) ? &kRefused : nullptr;
  };
  EXPECT_EQ(ExitCode::kGaveUp, send());
  EXPECT_EQ("the same record failed 8 times", message_);
  const std::size_t before = std::string("COMWWWc").find(GetParam() == 'C' ? 'c' : GetParam());
  expectCounts(before + 8, 7);
  expectDropped();
}

TEST_P(EachRecordTest, EndOfTheTerminal_IsReported) {
  for (const std::string answer : {"\x04", "\x15\x04", "\x04\x04", "\xFF\x04"}) {
    terminal_.reset();
    silent_ = false;
    fallsSilent(GetParam(), nth(), answer);
    EXPECT_EQ(ExitCode::kRefused, send());
    EXPECT_EQ("the terminal ended the download: it refused a record, or the operator aborted", message_);
  }
}

TEST_P(EachRecordTest, EndBehindTheParameterRecord_IsReported) {
  // A record that lost its beginning is taken byte by byte: a 05 in it, and then a 04.
  meets(GetParam(), nth(), {false, kParameters + "\x04"});
  const auto first = terminal_.fate;
  terminal_.fate = [&](char letter, int count) -> const Fate* {
    const Fate* const fate = first(letter, count);
    const bool before = std::exchange(silent_, silent_ || fate != nullptr);
    return before ? &kSilent : fate;
  };
  EXPECT_EQ(ExitCode::kRefused, send());
}

TEST_P(EachRecordTest, TerminalThatFallsSilent_IsGivenUp) {
  fallsSilent(GetParam(), nth());
  EXPECT_EQ(ExitCode::kGaveUp, send());
  EXPECT_EQ("the terminal does not answer any more", message_);
  // Quiet at first, the answer, five enquiries; then three times an enquiry and the dropping.
  EXPECT_EQ(Milliseconds(50 + 4000 + 5 * 1600 + 3 * (1600 + 1600)), length_);
}

TEST_P(EachRecordTest, AnswersThatAreAllDamaged_AreOfABadLine) {
  static const Fate kDamaged{true, "\x02ZOR,JXAPP,XDL"};
  bool damaged = false;
  terminal_.fate = [&](char letter, int count) {
    damaged = damaged || (letter == GetParam() && count == nth());
    return damaged ? &kDamaged : nullptr;
  };
  EXPECT_EQ(ExitCode::kGaveUp, send());
  EXPECT_EQ("the line is too bad: the terminal's answers arrive damaged", message_);
  // Quiet at first, the gap behind the damaged answer, five enquiries, each with the gap behind its answer.
  EXPECT_EQ(Milliseconds(50 + 100 + 5 * (1600 + 100)), length_);
}

// --- the beginning of a file ---

TEST_F(SerialSenderTest, BeginningWhoseAnswerIsNoAck_IsNeverSentAgain) {
  for (const std::string answer : {"\x15", "", "\x07", "\x04", "\x15\x06", "\x06\x06", "\x06\x15"}) {
    terminal_.reset();
    meets('O', 1, {true, answer});
    EXPECT_EQ(ExitCode::kSent, send()) << answer;
    EXPECT_EQ(1, std::count(terminal_.letters().begin(), terminal_.letters().end(), 'O'));
    EXPECT_EQ(std::vector<std::string>{content_}, terminal_.files()) << answer;
    EXPECT_EQ(0, terminal_.result());
  }
}

TEST_F(SerialSenderTest, BeginningThatTheTerminalHasNotTaken_EndsTheDownload) {
  for (const std::string answer : {"\x15", "", "\x07", "\x04"}) {
    terminal_.reset();
    meets('O', 1, {false, answer});
    EXPECT_EQ(ExitCode::kRefused, send()) << answer;
    EXPECT_EQ(
        "the line damaged the beginning of a file, and the terminal ended the download: start it anew on its screen",
        message_);
    EXPECT_EQ(-5, terminal_.result());
    EXPECT_TRUE(terminal_.files().empty());
  }
}

TEST_F(SerialSenderTest, AcknowledgedBeginningThatTheTerminalHasNotTaken_EndsTheDownload) {
  for (const std::string& content : {content_, std::string()}) {
    terminal_.reset();
    files_.clear();
    files_.add("a", content);
    meets('O', 1, {false, "\x06"});
    EXPECT_EQ(ExitCode::kRefused, send());
    EXPECT_EQ(-5, terminal_.result());
  }
}

// --- the end ---

TEST_F(SerialSenderTest, UnconfirmedEnd_IsRepeatedWhileTheTerminalAnswers) {
  for (const std::string answer : {"", "\x15", "\x02", "\x04Z"}) {
    terminal_.reset();
    meets('.', 1, {false, answer});
    meets('.', 2, {false, answer});
    EXPECT_EQ(ExitCode::kSent, send());
    EXPECT_EQ("EEECEOEMEWEWEWEECE.E.E.", terminal_.letters());
    expectWhole();
  }
}

TEST_F(SerialSenderTest, EndThatIsNeverConfirmed_IsTriedThreeTimesAndSaidSo) {
  static const Fate kNothing{false, ""};
  terminal_.fate = [](char letter, int) { return letter == '.' ? &kNothing : nullptr; };
  EXPECT_EQ(ExitCode::kGaveUp, send());
  EXPECT_EQ("EEECEOEMEWEWEWEECE.E.E.E", terminal_.letters().substr(0, 24));
  expectDropped();
}

TEST_F(SerialSenderTest, UnconfirmedEndOfASilentTerminal_SaysSo) {
  for (const std::string answer : {"", "\x02\x04", "\x14"}) {
    terminal_.reset();
    meets('.', 1, {true, answer});
    EXPECT_EQ(ExitCode::kGaveUp, send());
    EXPECT_EQ("the terminal has all files, but did not confirm the end; its screen says whether it installed them",
              message_);
    EXPECT_EQ(0, terminal_.result());
  }
}

TEST_F(SerialSenderTest, BytesBeforeTheLastAnswer_HideNoConfirmation) {
  for (const char* noise : {"\x06", "\x15", "\x06\xFFnoise", "\x04"}) {
    terminal_.reset();
    meets('.', 1, {true, noise + std::string("\x04")});
    EXPECT_EQ(ExitCode::kSent, send()) << noise;
    expectWhole();
  }
}

// --- interrupts and failures ---

TEST_F(SerialSenderTest, InterruptBeforeTheFirstAnswer_SendsNothingFurther) {
  terminal_.interrupted = [] { return true; };
  EXPECT_EQ(ExitCode::kInterrupted, send());
  EXPECT_EQ("interrupted before the terminal answered", message_);
  EXPECT_EQ("E", terminal_.letters());
}

TEST_F(SerialSenderTest, InterruptAnywhere_DropsTheDownload) {
  int interrupts = 0;
  for (int after = 31;; ++after) {
    terminal_.reset();
    int reads = 0;
    terminal_.interrupted = [&] { return ++reads > after; };
    const ExitCode code = send();
    if (code == ExitCode::kSent) break;
    ASSERT_EQ(ExitCode::kInterrupted, code) << after;
    EXPECT_EQ("interrupted; the terminal was told to drop the download", message_);
    expectDropped();
    ++interrupts;
  }
  EXPECT_LT(60, interrupts);
}

// Answers to the enquiries and ends after an interrupt.
class CancelTest : public SerialSenderTest {
 protected:
  // Interrupts behind the first data record, with these fates from then on.
  ExitCode interrupt(const std::function<const Fate*(char, int)>& then) {
    terminal_.fate = [this, then](char letter, int nth) {
      interrupts_ = interrupts_ || letter == 'W';
      return interrupts_ ? then(letter, nth) : nullptr;
    };
    terminal_.interrupted = [this] { return interrupts_; };
    return send();
  }

  bool interrupts_ = false;
};

TEST_F(CancelTest, WithDamagedAnswers_IsTriedThreeTimes) {
  for (const char* damaged : {"", "\x02ZOR", "\x15", "\x06"}) {
    const Fate fate{false, damaged};
    terminal_.reset();
    interrupts_ = false;
    EXPECT_EQ(ExitCode::kInterrupted, interrupt([&](char, int) { return &fate; }));
    EXPECT_EQ("interrupted; the terminal did not confirm that it dropped the download: see its screen", message_);
    EXPECT_EQ("WEWEWEW", terminal_.letters().substr(9));
  }
}

TEST_F(CancelTest, WithoutAnAnswerToTheEnquiry_ReachesTheTerminal) {
  static const Fate kDamaged{false, "\x02ZOR"};
  EXPECT_EQ(ExitCode::kInterrupted, interrupt([](char letter, int) { return letter == 'E' ? &kDamaged : nullptr; }));
  EXPECT_EQ("interrupted; the terminal was told to drop the download", message_);
  expectDropped();
}

TEST_F(CancelTest, ThatGetsLostTwice_ReachesTheTerminal) {
  EXPECT_EQ(ExitCode::kInterrupted,
            interrupt([](char letter, int nth) { return letter == 'W' && nth < 4 ? &kSilent : nullptr; }));
  EXPECT_EQ("interrupted; the terminal was told to drop the download", message_);
  expectDropped();
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
