// Sender and receiver over a faulty line: the files arrive unchanged, or the sender says that they did not.
#include <gtest/gtest.h>

#include <random>
#include <utility>

#include "tests/unit/tools/jxpush/serial/simulated_session.h"
#include "tests/unit/tools/jxpush/test_files.h"
#include "tools/jxpush/serial/records.h"

using namespace jxpush;

namespace {

using Contents = std::vector<std::string>;
using Milliseconds = std::chrono::milliseconds;

struct Fault {
  const char* name;
  LineFault kind;
  unsigned char value;
};

// 13 hex makes a NAK of an ACK, and the other way round. The delays are of 1.5 s, of 6 s, which is longer than the
// answer to a record is waited for, and of 18 s, longer than the sender waits at all.
constexpr Fault kFaults[] = {{"Drop", LineFault::Drop, 0},           {"Repeat", LineFault::Repeat, 0},
                             {"FlipLow", LineFault::Flip, 0x01},     {"FlipHigh", LineFault::Flip, 0x80},
                             {"FlipAnswer", LineFault::Flip, 0x13},  {"InsertAck", LineFault::Insert, 0x06},
                             {"InsertNak", LineFault::Insert, 0x15}, {"InsertStx", LineFault::Insert, 0x02},
                             {"InsertEnq", LineFault::Insert, 0x05}, {"InsertEot", LineFault::Insert, 0x04},
                             {"Swap", LineFault::Swap, 0},           {"Delay", LineFault::Delay, 1},
                             {"DelayLong", LineFault::Delay, 4},     {"DelayBeyond", LineFault::Delay, 12}};
constexpr std::size_t kFaultCount = sizeof kFaults / sizeof kFaults[0];
constexpr Milliseconds kDelay{1500};

// A fault at a place on the line: the way to the terminal, and behind it the way to the host.
struct Place {
  std::size_t at;
  Fault fault;
};

// Sendings of the same files under circumstances that differ in their faults alone.
class Sendings {
 public:
  explicit Sendings(Contents contents, Circumstances met = {}) : contents_(std::move(contents)), met_(std::move(met)) {
    for (std::size_t i = 0; i < contents_.size(); ++i) files_.add("f" + std::to_string(i), contents_[i]);
    met_.line.delay = kDelay;
    const SessionEnd end = send({});
    toTerminal_ = end.toTerminal;
    toHost_ = end.toHost;
    EXPECT_EQ(ExitCode::kSent, end.sender) << end.message;
    EXPECT_LE(contents_.size(), end.files.size());
    before_ = Contents(end.files.begin(), end.files.end() - static_cast<std::ptrdiff_t>(contents_.size()));
    EXPECT_TRUE(isWhole(end));
  }

  // The length of the line in places: the bytes of a sending without faults.
  std::size_t places() const { return toTerminal_ + toHost_; }
  std::size_t placesToTerminal() const { return toTerminal_; }

  // What is wrong with a sending over faults; empty when nothing is. A terminal that refuses a record and whose NAK
  // arrives as an ACK deceives every sender.
  std::string complaint(const std::vector<Place>& faults) {
    const SessionEnd end = send(faults);
    ++(end.sender == ExitCode::kSent ? sent : failed);
    if (end.sender != ExitCode::kSent || isWhole(end)) return "";
    if (end.nakBecameAck) return ++deceived, "";
    std::string text = "code 0 with";
    for (const Place& place : faults) text += " " + nameOf(place);
    for (const std::string& file : end.files) text += ", a file of " + std::to_string(file.size());
    return text + ", terminal " + std::to_string(end.terminal);
  }

  int sent = 0;
  int failed = 0;
  int deceived = 0;

 private:
  SessionEnd send(const std::vector<Place>& faults) {
    Circumstances met = met_;
    std::vector<LineEvent> there;
    std::vector<LineEvent> back;
    for (const Place& place : faults) {
      (isThere(place) ? there : back).push_back({at(place), place.fault.kind, place.fault.value});
    }
    met.toTerminal = FaultyDirection(there);
    met.toHost = FaultyDirection(back);
    return sendOver(met, files_.files());
  }

  // The terminal has installed the files, and those that another host has left stand before them as they did.
  bool isWhole(const SessionEnd& end) const {
    Contents expected = before_;
    expected.insert(expected.end(), contents_.begin(), contents_.end());
    return end.terminal == 0 && end.files == expected;
  }

  bool isThere(const Place& place) const { return place.at < toTerminal_; }
  std::size_t at(const Place& place) const { return isThere(place) ? place.at : place.at - toTerminal_; }
  std::string nameOf(const Place& place) const {
    return place.fault.name + std::string(isThere(place) ? ">" : "<") + std::to_string(at(place));
  }

  const Contents contents_;
  Circumstances met_;
  TestFiles files_;
  Contents before_;
  std::size_t toTerminal_ = 0;
  std::size_t toHost_ = 0;
};

// Bytes arrive in small groups, as adapters pass them on.
Circumstances gathered() {
  Circumstances met;
  met.line.tick = Milliseconds(2);
  return met;
}

Circumstances instant() {
  Circumstances met;
  met.line.bytesPerSecond = 0;
  return met;
}

// A terminal in which a killed sender has left a file open.
Circumstances withOpenFile() {
  Circumstances met = gathered();
  met.leftBehind = openRecord("old") + dataRecord(0, "old", 3);
  met.ago = Milliseconds(100);
  return met;
}

const std::string kControls = "\x02\x03\x04\x05\x06\x15";

void expectNoFalseSuccess(Sendings& sendings, std::size_t places) {
  for (const Fault& fault : kFaults) {
    for (std::size_t at = 0; at < places; ++at) EXPECT_EQ("", sendings.complaint({{at, fault}}));
  }
  EXPECT_EQ(0, sendings.deceived);  // that takes two faults
}

}  // namespace

TEST(LineFaults, OneFaultAnywhere_SendsTheFileOrSaysSo) {
  Sendings sendings({kControls}, gathered());
  expectNoFalseSuccess(sendings, sendings.places());
  EXPECT_LT(sendings.failed, sendings.sent / 2);
}

TEST(LineFaults, OneFaultOnTheAnswers_SendsTheFileUnlessItMeetsTheLastOne) {
  Sendings sendings({kControls}, gathered());
  for (const Fault& fault : kFaults) {
    if (fault.name == std::string("DelayBeyond")) continue;  // as good as a dead line
    for (std::size_t at = sendings.placesToTerminal(); at + 1 < sendings.places(); ++at) {
      EXPECT_EQ("", sendings.complaint({{at, fault}}));
    }
  }
  EXPECT_EQ(0, sendings.failed);
}

TEST(LineFaults, OneFaultWhereAFileWasLeftOpen_NeverWritesToIt) {
  Sendings sendings({kControls}, withOpenFile());
  expectNoFalseSuccess(sendings, sendings.places());
}

TEST(LineFaults, OneFaultOnAFileThatHoldsRecords_HasTheTerminalTakeNoneOfThem) {
  const Contents files = {"a" + recordOf("S\x03") + "b",
                          recordOf("O" + std::string(40, 'x') + "\x03") + recordOf("C\x03"),
                          "abc" + recordOf(std::string("W\0\1\0\0\0\0z", 8)) + "def"};
  for (const std::string& content : files) {
    Sendings sendings({content}, instant());
    expectNoFalseSuccess(sendings, sendings.placesToTerminal());
  }
}

TEST(LineFaults, TwoFaultsAnywhere_SendTheFilesOrSaySo) {
  std::mt19937 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same faults each time
  for (const Contents& contents : {Contents{kControls}, Contents{""}, Contents{"a", "b"}}) {
    Sendings sendings(contents, instant());
    for (int i = 0; i < 1500; ++i) {
      const Place first{random() % sendings.places(), kFaults[random() % kFaultCount]};
      const Place second{random() % sendings.places(), kFaults[random() % kFaultCount]};
      EXPECT_EQ("", sendings.complaint({first, second}));
    }
    EXPECT_LT(0, sendings.sent);
  }
}

// All of them, which takes some minutes.
TEST(LineFaults, DISABLED_EveryTwoFaults_SendTheFileOrSaySo) {
  Sendings sendings({kControls}, instant());
  for (std::size_t first = 0; first < sendings.places() * kFaultCount; ++first) {
    for (std::size_t second = 0; second < first; ++second) {
      const Place places[] = {{first / kFaultCount, kFaults[first % kFaultCount]},
                              {second / kFaultCount, kFaults[second % kFaultCount]}};
      if (places[0].at == places[1].at) continue;
      EXPECT_EQ("", sendings.complaint({places[0], places[1]}));
    }
  }
  std::printf("sent %d, failed %d, deceived %d\n", sendings.sent, sendings.failed, sendings.deceived);
}

TEST(LineFaults, EveryStateThatAKilledSenderLeaves_TakesTheFileOrSaysSo) {
  const std::string whole = closeRecord() + openRecord("old") + messageRecord("old", ": 0 %") +
                            dataRecord(0, "old", 3) + closeRecord() + "\x05";
  TestFiles files;
  files.add("f", kControls);
  int sent = 0;
  for (const char* failures : {"", "\x02?", "\x02?\x02?"}) {
    for (const int ago : {50, 500, 1300}) {
      for (std::size_t size = 0; size <= whole.size(); ++size) {
        Circumstances met = gathered();
        met.leftBehind = failures + whole.substr(0, size);
        met.ago = Milliseconds(ago);
        const SessionEnd end = sendOver(met, files.files());
        if (end.sender != ExitCode::kSent) continue;
        ++sent;
        EXPECT_EQ(0, end.terminal);
        EXPECT_EQ(kControls, end.files.back()) << size;
        EXPECT_GE(2U, end.files.size());
        EXPECT_TRUE(end.files.size() == 1 || end.files[0].empty() || end.files[0] == "old") << size;
      }
    }
  }
  // Where the terminal waits for a record's end when it has had two failed ones, it ends the download.
  EXPECT_LT(whole.size() * 7, static_cast<std::size_t>(sent));
}

TEST(LineFaults, LineWithoutFaults_SendsEachRecordOnce) {
  TestFiles files;
  const std::string content = mixedBytes(100000);
  files.add("a.zip", content);
  files.add("b.zip", "second");
  const SessionEnd end = sendOver(gathered(), files.files());
  EXPECT_EQ(ExitCode::kSent, end.sender);
  EXPECT_EQ(0, end.terminal);
  EXPECT_EQ((Contents{content, "second"}), end.files);
  EXPECT_EQ(0U, end.outcome.sentAgain);
  // 98 data records and 1; two files begin, and three times one ends; and the messages.
  EXPECT_EQ(99 + 2 + 3 + end.messages.size(), end.outcome.records);
}

TEST(LineFaults, EveryKindOfSize_ArrivesUnchanged) {
  TestFiles files;
  Contents contents;
  for (const std::size_t size : {0U, 1U, 1023U, 1024U, 1025U, 2048U, 65536U, 65537U}) {
    contents.push_back(mixedBytes(size));
    files.add("file" + std::to_string(size), contents.back());
  }
  const SessionEnd end = sendOver(instant(), files.files());
  EXPECT_EQ(ExitCode::kSent, end.sender);
  EXPECT_EQ(contents, end.files);
}

TEST(LineFaults, ThreeThousandRecordsWithAFaultInAHundred_ArriveUnchangedOrWithACode) {
  TestFiles files;
  const std::string content = mixedBytes(3000UL * 1024);
  files.add("large.zip", content);
  int whole = 0;
  for (std::uint32_t seed = 1; seed <= 2; ++seed) {
    Circumstances met = instant();
    met.toTerminal = FaultyDirection({}, 100 * 1034, seed);
    met.toHost = FaultyDirection({}, 100 * 30, seed);
    const SessionEnd end = sendOver(met, files.files());
    EXPECT_LT(5U, end.faults);
    EXPECT_TRUE(end.sender != ExitCode::kSent || (end.terminal == 0 && end.files == Contents{content})) << seed;
    if (end.sender == ExitCode::kSent) ++whole;
  }
  EXPECT_LT(0, whole);
}

TEST(LineFaults, HeavyNoise_EndsInBoundedTime) {
  TestFiles files;
  const std::string content = mixedBytes(20000);
  files.add("noisy.zip", content);
  for (std::uint32_t seed = 1; seed <= 100; ++seed) {
    Circumstances met = instant();
    met.toTerminal = FaultyDirection({}, 500, seed);
    met.toHost = FaultyDirection({}, 10, seed);
    const SessionEnd end = sendOver(met, files.files());
    EXPECT_TRUE(end.sender != ExitCode::kSent || end.files == Contents{content}) << seed;
    EXPECT_GT(std::chrono::minutes(10), end.length) << seed;
  }
}

TEST(LineFaults, Operator_SeesThePercentageEveryTwoSecondsWhateverTheName) {
  TestFiles files;
  files.add(std::string(255, 'n'), mixedBytes(100000));  // nine seconds
  const SessionEnd end = sendOver(gathered(), files.files());
  const char* const percents[] = {": 0 %", ": 22 %", ": 45 %", ": 67 %", ": 90 %"};
  ASSERT_EQ(5U, end.messages.size());
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(std::string(252 - std::string(percents[i]).size(), 'n') + percents[i], end.messages[i]);
  }
}
