#include "tests/support/line_simulator.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <system_error>

namespace {

constexpr std::size_t kQueueLimit = 4096;
// What becomes due within this time leaves in one write; the last byte of what is under way is never late.
constexpr std::chrono::microseconds kPacedPiece{500};

}  // namespace

LineSimulator::LineSimulator(const Settings& settings)
    : settings_(settings),
      forward_(host_, terminal_, settings_.toTerminal, settings.seed),
      backward_(terminal_, host_, settings_.toHost, settings.seed + 1) {
  forward_.opposite = &backward_;
  backward_.opposite = &forward_;
  if (pipe(wake_) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  thread_ = std::thread([this] { run(); });
}

LineSimulator::~LineSimulator() {
  stop_ = true;
  ::close(wake_[1]);
  thread_.join();
  ::close(wake_[0]);
}

void LineSimulator::run() {
  while (!stop_) {
    waitForWork();
    take(forward_);
    take(backward_);
    deliver(forward_);
    deliver(backward_);
    quiet_ = forward_.queue.empty();
  }
}

void LineSimulator::waitForWork() {
  pollfd entries[3] = {{wake_[0], POLLIN, 0}, {host_.master(), 0, 0}, {terminal_.master(), 0, 0}};
  auto next = Clock::time_point::max();
  for (Way* way : {&forward_, &backward_}) {
    const bool toTerminal = way == &forward_;
    if (way->queue.size() < kQueueLimit) entries[toTerminal ? 1 : 2].events |= POLLIN;
    if (way->queue.empty()) continue;
    const Byte& first = way->queue.front();
    if (first.heldTo > way->opposite->seen) continue;
    if (first.alone && way->to.unread() > 0) {
      next = std::min(next, Clock::now() + std::chrono::milliseconds(1));
    } else if (first.due > Clock::now()) {
      next = std::min({next, way->queue.back().due, first.due + kPacedPiece});
    } else {
      entries[toTerminal ? 2 : 1].events |= POLLOUT;
    }
  }
  timespec wait{};
  if (next != Clock::time_point::max()) {
    const auto rest = std::max<Clock::duration>(next - Clock::now(), Clock::duration::zero());
    wait.tv_nsec = static_cast<long>(std::chrono::duration_cast<std::chrono::nanoseconds>(rest).count() % 1000000000);
    wait.tv_sec = static_cast<time_t>(std::chrono::duration_cast<std::chrono::seconds>(rest).count());
  }
  ppoll(entries, 3, next == Clock::time_point::max() ? nullptr : &wait, nullptr);
}

void LineSimulator::take(Way& way) {
  if (way.queue.size() >= kQueueLimit) return;
  unsigned char buffer[kQueueLimit];
  const ssize_t got = ::read(way.from.master(), buffer, sizeof buffer);
  if (got <= 0 || cut_) return;
  quiet_ = false;
  for (ssize_t i = 0; i < got; ++i) accept(way, buffer[i]);
}

void LineSimulator::accept(Way& way, unsigned char byte) {
  const std::size_t at = way.seen++;
  if (way.holdForSwap) {
    way.holdForSwap = false;
    put(way, byte);
    return put(way, way.held);
  }
  for (const Event& event : way.direction.script) {
    if (event.at == at) return apply(way, event, byte);
  }
  const std::uint32_t oneIn = way.direction.oneIn;
  if (oneIn == 0 || way.random() % oneIn != 0) return put(way, byte);
  const Fault fault = kAllFaults[way.random() % (sizeof kAllFaults / sizeof kAllFaults[0])];
  apply(way, {at, fault, static_cast<unsigned char>(way.random() & 0xFFU)}, byte);
}

void LineSimulator::apply(Way& way, const Event& event, unsigned char byte) {
  ++faults_;
  switch (event.fault) {
    case Fault::Drop:
      return;
    case Fault::Repeat:
      put(way, byte);
      return put(way, byte);
    case Fault::Flip:
      return put(way, static_cast<unsigned char>(byte ^ (event.value == 0 ? 1U : event.value)));
    case Fault::Insert:
      put(way, event.value);
      return put(way, byte);
    case Fault::Swap:
      way.holdForSwap = true;
      way.held = byte;
      return;
    case Fault::Delay:
      return put(way, byte, settings_.delayMs);
    case Fault::Split:
      return put(way, byte, 0, true);
    case Fault::Hold:
      return put(way, byte, 0, false, way.opposite->seen + event.value);
  }
}

void LineSimulator::put(Way& way, unsigned char byte, std::uint32_t extraMs, bool alone, std::size_t heldTo) {
  // A byte is on the line for its own time, behind those ahead of it.
  auto due = std::max(way.lineFree, Clock::now()) + std::chrono::milliseconds(extraMs);
  if (settings_.bytesPerSecond != 0) due += std::chrono::nanoseconds(1000000000 / settings_.bytesPerSecond);
  way.lineFree = due;
  way.queue.push_back({byte, due, alone, heldTo});
}

void LineSimulator::deliver(Way& way) {
  unsigned char buffer[kQueueLimit];
  std::size_t count = 0;
  const auto now = Clock::now();
  for (const Byte& byte : way.queue) {
    if (count == sizeof buffer || byte.due > now || byte.heldTo > way.opposite->seen) break;
    if (byte.alone && (count > 0 || way.to.unread() > 0)) break;
    buffer[count++] = byte.value;
  }
  if (count == 0) return;
  const ssize_t put = ::write(way.to.master(), buffer, count);
  if (put > 0) way.queue.erase(way.queue.begin(), way.queue.begin() + put);
}
