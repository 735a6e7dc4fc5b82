#include "tests/support/simulated_line.h"

#include <algorithm>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tests/support/simulated_device.h"

namespace {

constexpr std::chrono::hours kLongestCourse{24};
constexpr std::chrono::minutes kLongestEnd{10};

}  // namespace

SimulatedLine::SimulatedLine(const Settings& settings) : settings_(settings), limit_(kLongestCourse) {
  SimulatedDevice::instance().line = this;
}

SimulatedLine::~SimulatedLine() { SimulatedDevice::instance().line = nullptr; }

void SimulatedLine::run(const std::function<void()>& host, const std::function<void()>& terminal) {
  std::thread thread([&] { runTerminal(terminal); });
  awaitTurn(kHost);
  try {
    host();
  } catch (...) {
    failure_ = std::current_exception();
  }
  ended_[kHost] = true;
  limit_ = now_ + kLongestEnd;
  if (!ended_[kTerminal]) {
    handOver(kTerminal);
    awaitTurn(kHost);
  }
  thread.join();
  if (failure_) std::rethrow_exception(failure_);
}

void SimulatedLine::runTerminal(const std::function<void()>& terminal) {
  awaitTurn(kTerminal);
  try {
    terminal();
  } catch (...) {
    if (!failure_) failure_ = std::current_exception();
  }
  ended_[kTerminal] = true;
  handOver(kHost);
}

bool SimulatedLine::wait(End end, Time deadline) {
  deadlines_[end] = deadline;
  while (!arrived(end) && now_ < deadline) {
    const Time mine = nextEvent(end, deadline);
    const Time theirs = nextEvent(other(end), deadlines_[other(end)]);
    if (ended_[other(end)] || mine < theirs) {
      moveTo(mine);
    } else {
      moveTo(theirs);
      handOver(other(end));
      awaitTurn(end);
    }
  }
  return arrived(end);
}

SimulatedLine::Time SimulatedLine::nextEvent(End end, Time deadline) {
  const Way& way = wayTo(end);
  return way.queue.empty() ? deadline : std::min(deadline, way.queue.front().due);
}

void SimulatedLine::moveTo(Time time) {
  now_ = std::max(now_, time);
  if (now_ > limit_) throw std::runtime_error("the simulated session does not end");
}

std::size_t SimulatedLine::read(End end, void* buffer, std::size_t size) {
  auto* const bytes = static_cast<unsigned char*>(buffer);
  std::size_t count = 0;
  for (; count < size && arrived(end); ++count) {
    bytes[count] = wayTo(end).queue.front().value;
    wayTo(end).queue.pop_front();
  }
  return count;
}

void SimulatedLine::write(End end, const void* data, std::size_t size) {
  const auto* const bytes = static_cast<const unsigned char*>(data);
  const Time perByte(settings_.bytesPerSecond == 0 ? 0 : 1000000 / settings_.bytesPerSecond);
  Way& way = ways_[end];
  for (std::size_t i = 0; i < size; ++i) {
    const FaultyDirection::Output output = way.faulty.pass(bytes[i]);
    for (std::size_t at = 0; at < output.count; ++at) {
      way.free = std::max(way.free, now_) + perByte + settings_.delay * output.bytes[at].delays;
      way.queue.push_back({output.bytes[at].value, arrival(way.free)});
    }
  }
}

// As adapters do, which gather bytes.
SimulatedLine::Time SimulatedLine::arrival(Time sent) const {
  return settings_.tick.count() == 0 ? sent : (sent + settings_.tick - Time(1)) / settings_.tick * settings_.tick;
}

void SimulatedLine::discard(End end) {
  while (arrived(end)) wayTo(end).queue.pop_front();
}

void SimulatedLine::handOver(End to) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    turn_ = to;
  }
  turned_.notify_one();
}

void SimulatedLine::awaitTurn(End end) {
  std::unique_lock<std::mutex> lock(mutex_);
  turned_.wait(lock, [&] { return turn_ == end; });
}
