#include "tests/support/simulated_line.h"

#include <algorithm>
#include <stdexcept>

namespace {

constexpr std::chrono::hours kLongestCourse{25};
constexpr std::chrono::seconds kRecordSilence{1};  // the terminal waits so long for a byte of a record

}  // namespace

void SimulatedLine::write(const void* data, std::size_t size) {
  const auto* const bytes = static_cast<const unsigned char*>(data);
  for (std::size_t i = 0; i < size; ++i) pass(toTerminal, there_, bytes[i]);
}

int SimulatedLine::read(Time deadline) {
  for (;;) {
    const Time mine = back_.bytes.empty() ? deadline : std::min(deadline, back_.bytes.front().due);
    if (runTerminal(mine)) continue;
    moveTo(mine);
    if (back_.bytes.empty() || back_.bytes.front().due > now_) return -1;
    const int byte = back_.bytes.front().value;
    back_.bytes.pop_front();
    return byte;
  }
}

int SimulatedLine::end() {
  while (runTerminal(Time::max())) {
  }
  return terminal_.result();
}

// Has the terminal meet its next event if that comes by `until`. False when none does.
bool SimulatedLine::runTerminal(Time until) {
  if (terminal_.result() != tessolan::Conversation::kGoOn) return false;
  const Time silent = terminal_.isIdle() ? Time::max() : silentAt_;
  const Time next = there_.bytes.empty() ? Time::max() : there_.bytes.front().due;
  if (std::min(silent, next) > until || std::min(silent, next) == Time::max()) return false;
  moveTo(std::min(silent, next));
  std::string answers;
  if (next <= silent) {
    answers = terminal_.exchange(std::string(1, static_cast<char>(there_.bytes.front().value)));
    there_.bytes.pop_front();
  } else {
    answers = terminal_.fail(Tessolan::kFailed);
  }
  silentAt_ = now_ + kRecordSilence;
  for (const char byte : answers) pass(toHost, back_, static_cast<unsigned char>(byte));
  return true;
}

void SimulatedLine::pass(FaultyDirection& faulty, Way& way, unsigned char byte) {
  const Time perByte(settings_.bytesPerSecond == 0 ? 0 : 1000000 / settings_.bytesPerSecond);
  const FaultyDirection::Output output = faulty.pass(byte);
  passed.push_back(&way == &back_);
  for (std::size_t i = 0; i < output.count; ++i) {
    way.free = std::max(way.free, now_) + perByte + settings_.delay * output.bytes[i].delays;
    // Adapters gather bytes.
    const Time tick = std::max(settings_.tick, Time(1));
    way.bytes.push_back({output.bytes[i].value, (way.free + tick - Time(1)) / tick * tick});
  }
}

void SimulatedLine::moveTo(Time time) {
  now_ = std::max(now_, time);
  if (now_ > kLongestCourse) throw std::runtime_error("the simulated session does not end");
}
