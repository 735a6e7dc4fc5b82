// The sender on a simulated line, and what the terminal at its far end has stored.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "serial/tessolan.h"
#include "tests/support/simulated_line.h"
#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/serial/line.h"
#include "tools/jxpush/serial/sender.h"

// Keeps what it gets in memory, as the terminal's sink keeps it in files.
class Store : public Tessolan::System {
 public:
  bool openFile(const char* name) override;
  bool writeBlock(std::uint32_t offset, const unsigned char* data, std::uint32_t length) override;
  bool closeFile() override;
  bool recordR(const char* /*text*/) override { return true; }
  bool showMessage(const char* text) override;
  bool recordS() override { return true; }
  bool recordU() override { return true; }

  std::vector<std::string> files;
  std::vector<std::string> messages;
  bool open = false;
};

// The host's end of a simulated line.
class SimulatedHost : public jxpush::Line {
 public:
  explicit SimulatedHost(SimulatedLine& line) : line_(line) {}
  void write(const void* data, std::size_t size) override { line_.write(data, size); }
  void offer(unsigned char byte) override { write(&byte, 1); }
  int readByte(int timeoutMs) override { return line_.read(line_.now() + std::chrono::milliseconds(timeoutMs)); }
  Time now() override { return Time(std::chrono::hours(1) + line_.now()); }
  void ignoreInterrupts() override {}

 private:
  SimulatedLine& line_;
};

// What a session meets.
struct Circumstances {
  SimulatedLine::Settings line;
  FaultyDirection toTerminal;
  FaultyDirection toHost;
  // What another host has sent before, as one that was killed would have, and how long ago. The faults come after it.
  std::string leftBehind;
  std::chrono::milliseconds ago{0};
};

struct SessionEnd {
  jxpush::ExitCode sender = jxpush::ExitCode::kSent;
  std::string message;  // of the sender's failure
  int terminal = 0;     // its result
  std::vector<std::string> files;
  std::vector<std::string> messages;
  std::vector<bool> bytes;  // of the sending, in their order: whether it was one to the host
  std::size_t faults = 0;
  bool nakBecameAck = false;  // on the way to the host
  jxpush::Outcome outcome;
  std::chrono::milliseconds length{0};  // of the sending
};

// One sending of `files`.
SessionEnd sendOver(const Circumstances& met, const std::vector<jxpush::InputFile>& files);
