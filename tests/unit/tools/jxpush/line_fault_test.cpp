// Sender and receiver over a faulty line: the file arrives unchanged, or the sender says that it did not.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

#include "serial/tessolan.h"
#include "serial/wire.h"
#include "tests/support/line_simulator.h"
#include "tests/unit/serial/calls.h"
#include "tests/unit/tools/jxpush/test_files.h"
#include "tools/jxpush/problem.h"
#include "tools/jxpush/serial_port.h"
#include "tools/jxpush/serial_sender.h"

using namespace jxpush;

namespace {

using Fault = LineSimulator::Fault;

constexpr int kTimeDivisor = 20;
constexpr std::size_t kWorkers = 6;

// Keeps what it gets in memory, as the terminal's sink keeps it in files.
class Store : public Tessolan::System {
 public:
  bool openFile(const char* /*name*/) override {
    files.emplace_back();
    open_ = true;
    return true;
  }
  bool writeBlock(std::uint32_t offset, const unsigned char* data, std::uint32_t length) override {
    if (!open_ || offset > 100000000) return false;
    std::string& file = files.back();
    if (length > 0 && file.size() < std::size_t{offset} + length) file.resize(offset + length);
    file.replace(offset, length, reinterpret_cast<const char*>(data), length);
    return true;
  }
  bool closeFile() override {
    open_ = false;
    return true;
  }
  bool recordR(const char* /*text*/) override { return true; }
  bool showMessage(const char* /*text*/) override { return true; }
  bool recordS() override { return true; }
  bool recordU() override { return true; }

  std::vector<std::string> files;

 private:
  bool open_ = false;
};

SerialTimes scaledTimes() {
  SerialTimes times;
  times.connectMs = 100;
  times.answerMs = 400;
  times.enquiryMs = 200;
  times.gapMs = 50;
  times.settleMs = 20;
  return times;
}

struct End {
  ExitCode sender = ExitCode::kSent;
  int receiver = 0;
  std::vector<std::string> files;
  std::size_t faults = 0;
  Outcome outcome;
};

// A thread that runs `receive`, which has opened its device and flushed it.
std::thread startTerminal(const std::function<void()>& receive) {
  static std::mutex oneAtATime;
  const std::lock_guard<std::mutex> lock(oneAtATime);
  const int before = Calls::instance().flushes;
  std::thread terminal([receive] {
    Calls::thisThreadReceives();
    receive();
  });
  while (Calls::instance().flushes < before + 2) std::this_thread::yield();
  return terminal;
}

// One sending of `files` over a line with `settings`; the operator aborts a terminal that the sender has left.
End sendOver(const LineSimulator::Settings& settings, const std::vector<InputFile>& files,
             const SerialTimes& times = scaledTimes()) {
  End end;
  LineSimulator line(settings);
  Store store;
  Tessolan receiver(&store);
  std::thread terminal = startTerminal([&] { end.receiver = receiver.receive(line.terminalPath().c_str()); });
  RecordingObserver observer;
  try {
    SerialPort port(line.hostPath(), -1);
    SerialSender(port, observer, end.outcome, times).send(files, 3);
  } catch (const Problem& problem) {
    end.sender = problem.code();
  }
  receiver.requestAbort();
  terminal.join();
  end.files = store.files;
  end.faults = line.faults();
  return end;
}

class LineFaults : public testing::Test {
 protected:
  LineFaults() { Calls::instance().timeDivisor = kTimeDivisor; }

  // What must hold whatever the line did.
  static bool isWhole(const End& end, const std::string& content) {
    return end.receiver == 0 && end.files.size() == 1 && end.files.back() == content;
  }

  static void expectWholeOrACode(const End& end, const std::string& content, const std::string& what) {
    EXPECT_TRUE(isWhole(end, content) || end.sender != ExitCode::kSent) << what;
  }

  CallsReset reset_;
};

struct FaultCase {
  const char* name;
  Fault fault;
  unsigned char value;
};

// One fault at every byte of a small sending, in both directions.
class OneFault : public LineFaults, public testing::WithParamInterface<FaultCase> {};

INSTANTIATE_TEST_SUITE_P(
    Faults, OneFault,
    testing::Values(FaultCase{"Drop", Fault::Drop, 0}, FaultCase{"Repeat", Fault::Repeat, 0},
                    FaultCase{"FlipLow", Fault::Flip, 0x01}, FaultCase{"FlipHigh", Fault::Flip, 0x80},
                    FaultCase{"InsertAck", Fault::Insert, 0x06}, FaultCase{"InsertNak", Fault::Insert, 0x15},
                    FaultCase{"InsertStx", Fault::Insert, 0x02}, FaultCase{"InsertEot", Fault::Insert, 0x04},
                    FaultCase{"Swap", Fault::Swap, 0}, FaultCase{"Split", Fault::Split, 0}),
    [](const auto& each) { return each.param.name; });

// The acknowledgement of one record of a small sending comes when the sender has stopped waiting for it and enquired.
class LateAcknowledgement : public LineFaults, public testing::WithParamInterface<char> {
 protected:
  // It is held until the sender has made `enquiries`.
  End sendWith(unsigned char enquiries) {
    files_.add("a", content_);
    LineSimulator::Settings settings;
    settings.toHost.script = {{placeOf(GetParam()), Fault::Hold, enquiries}};
    SerialTimes times = scaledTimes();
    times.connectMs = 20000;  // one enquiry: the places below count on it
    times.messageMs = 60000;  // one message likewise
    if (enquiries == 1) times.enquiryMs = times.gapMs = 20000;
    return sendOver(settings, files_.files(), times);
  }

  // Where the acknowledgement of the only record of a letter stands in what the terminal sends: its parameters, one
  // byte each for O, M and W, its parameters, one byte for C.
  static std::size_t placeOf(char letter) {
    constexpr std::size_t kParameterRecord = sizeof tessolan::kParameters - 1 + 4;
    return letter == 'C' ? kParameterRecord + 3 + kParameterRecord : kParameterRecord + std::string("OMW").find(letter);
  }

  const std::string content_ = "content";
  TestFiles files_;
};

INSTANTIATE_TEST_SUITE_P(Letters, LateAcknowledgement, testing::Values('O', 'M', 'W', 'C'));

}  // namespace

TEST_P(LateAcknowledgement, BeforeTheAnswerToTheEnquiry_CountsAsThatOfItsRecord) {
  const End end = sendWith(1);
  EXPECT_EQ(1U, end.faults);
  EXPECT_EQ(ExitCode::kSent, end.sender);
  EXPECT_TRUE(isWhole(end, content_));
  EXPECT_EQ(4U, end.outcome.records);
  EXPECT_EQ(0U, end.outcome.sentAgain);
}

TEST_P(LateAcknowledgement, AfterTheWaitForTheEnquiryToo_StillSendsTheFile) {
  const End end = sendWith(2);
  EXPECT_EQ(1U, end.faults);
  EXPECT_EQ(ExitCode::kSent, end.sender);
  EXPECT_TRUE(isWhole(end, content_));
}

TEST_P(LateAcknowledgement, WhenTheSenderHasGivenUp_InstallsNothing) {
  const End end = sendWith(6);  // five look for the answer; the sixth is to drop the download
  EXPECT_EQ(1U, end.faults);
  EXPECT_EQ(ExitCode::kGaveUp, end.sender);
  EXPECT_NE(0, end.receiver);
}

TEST_P(OneFault, AtEveryByteOfBothDirections_SendsTheFileOrSaysSo) {
  const std::string content = "\x02\x03\x04\x05\x06\x15";
  TestFiles files;
  files.add("a", content);
  const FaultCase& what = GetParam();
  for (const bool toTerminal : {true, false}) {
    std::atomic<std::size_t> next{0};
    std::atomic<std::size_t> whole{0};
    std::atomic<bool> beyondTheEnd{false};
    // A sending mostly waits, so that several run at a time.
    std::vector<std::thread> workers;
    workers.reserve(kWorkers);
    for (std::size_t i = 0; i < kWorkers; ++i) {
      workers.emplace_back([&] {
        while (!beyondTheEnd) {
          const std::size_t at = next++;
          LineSimulator::Settings settings;
          (toTerminal ? settings.toTerminal : settings.toHost).script = {{at, what.fault, what.value}};
          const End end = sendOver(settings, files.files());
          if (end.faults == 0) beyondTheEnd = true;
          if (end.sender == ExitCode::kSent) ++whole;
          const std::string where = std::string(toTerminal ? "to terminal " : "to host ") + std::to_string(at);
          expectWholeOrACode(end, content, where);
          // Only an end that the line makes up for the terminal looks like a refusal to the host.
          EXPECT_FALSE(!toTerminal && isWhole(end, content) && end.sender == ExitCode::kRefused) << where;
        }
      });
    }
    for (std::thread& worker : workers) worker.join();
    EXPECT_LT(60U, next);
    EXPECT_LT(next / 2, whole);
  }
}

TEST_F(LineFaults, LineWithoutFaults_SendsEachRecordOnce) {
  TestFiles files;
  const std::string content = mixedBytes(100000);
  files.add("a.zip", content);
  files.add("b.zip", "second");
  const End end = sendOver({}, files.files());
  EXPECT_EQ(ExitCode::kSent, end.sender);
  EXPECT_EQ(0, end.receiver);
  EXPECT_EQ((std::vector<std::string>{content, "second"}), end.files);
}

TEST_F(LineFaults, EveryKindOfSize_ArrivesUnchanged) {
  TestFiles files;
  std::vector<std::string> contents;
  for (const std::size_t size : {0U, 1U, 1023U, 1024U, 1025U, 2048U, 65536U, 65537U}) {
    contents.push_back(mixedBytes(size));
    files.add("file" + std::to_string(size), contents.back());
  }
  const End end = sendOver({}, files.files());
  EXPECT_EQ(ExitCode::kSent, end.sender);
  EXPECT_EQ(contents, end.files);
}

TEST_F(LineFaults, ThreeThousandRecordsWithAFaultInAHundred_ArriveUnchangedOrWithACode) {
  TestFiles files;
  const std::string content = mixedBytes(3000UL * 1024);
  files.add("large.zip", content);
  int whole = 0;
  for (std::uint32_t seed = 1; seed <= 4; ++seed) {
    LineSimulator::Settings settings;
    settings.seed = seed;
    settings.toTerminal.oneIn = 100 * 1034;
    settings.toHost.oneIn = 100;
    settings.delayMs = 5;
    const End end = sendOver(settings, files.files());
    EXPECT_LT(5U, end.faults);
    expectWholeOrACode(end, content, "seed " + std::to_string(seed));
    if (end.sender == ExitCode::kSent) ++whole;
  }
  EXPECT_LT(0, whole);
}

TEST_F(LineFaults, HeavyNoise_EndsInBoundedTime) {
  TestFiles files;
  const std::string content = mixedBytes(20000);
  files.add("noisy.zip", content);
  for (std::uint32_t seed = 1; seed <= 10; ++seed) {
    LineSimulator::Settings settings;
    settings.seed = seed;
    settings.toTerminal.oneIn = 2000;
    settings.toHost.oneIn = 10;
    settings.delayMs = 5;
    const End end = sendOver(settings, files.files());
    expectWholeOrACode(end, content, "seed " + std::to_string(seed));
  }
}
