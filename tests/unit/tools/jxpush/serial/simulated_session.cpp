#include "tests/unit/tools/jxpush/serial/simulated_session.h"

#include <algorithm>

#include "serial/wire.h"
#include "tests/unit/tools/jxpush/test_files.h"

using namespace jxpush;

namespace {

constexpr std::uint32_t kLargestFile = 100000000;
constexpr int kWaitSeconds = 10;

}  // namespace

bool Store::openFile(const char* /*name*/) {
  files.emplace_back();
  open = true;
  return true;
}

bool Store::writeBlock(std::uint32_t offset, const unsigned char* data, std::uint32_t length) {
  if (!open || offset > kLargestFile) return false;
  std::string& file = files.back();
  if (length == 0) return true;
  if (file.size() < std::size_t{offset} + length) file.resize(offset + length);
  file.replace(offset, length, reinterpret_cast<const char*>(data), length);
  return true;
}

bool Store::closeFile() {
  open = false;
  return true;
}

bool Store::showMessage(const char* text) {
  messages.emplace_back(text);
  return true;
}

namespace {

// The other host's bytes reach the terminal, whose answers get lost as when the port is closed and opened anew.
void comeAfter(SimulatedLine& line, const Circumstances& met) {
  line.write(met.leftBehind.data(), met.leftBehind.size());
  const SimulatedLine::Time until = line.now() + met.ago;
  while (line.read(until) >= 0) {
  }
  line.toTerminal = met.toTerminal;
  line.toHost = met.toHost;
  line.passed.clear();
}

void send(SimulatedLine& line, const std::vector<InputFile>& files, SessionEnd& end) {
  const SimulatedLine::Time begin = line.now();
  SimulatedHost port(line);
  RecordingObserver observer;
  try {
    SerialSender(port, observer, end.outcome).send(files, kWaitSeconds);
  } catch (const Problem& problem) {
    end.sender = problem.code();
    end.message = problem.what();
  }
  end.length = std::chrono::duration_cast<std::chrono::milliseconds>(line.now() - begin);
}

bool becameAck(const FaultyDirection::Met& met) {
  return met.byte == tessolan::kNAK && met.output.count == 1 && met.output.bytes[0].value == tessolan::kACK;
}

}  // namespace

SessionEnd sendOver(const Circumstances& met, const std::vector<InputFile>& files) {
  SessionEnd end;
  Store store;
  SimulatedLine line(met.line, store);
  comeAfter(line, met);
  send(line, files, end);
  end.terminal = line.end();
  end.files = store.files;
  end.messages = store.messages;
  const std::vector<FaultyDirection::Met>& onAnswers = line.toHost.met();
  end.bytes = line.passed;
  end.faults = line.toTerminal.met().size() + onAnswers.size();
  end.nakBecameAck = std::any_of(onAnswers.begin(), onAnswers.end(), becameAck);
  return end;
}
