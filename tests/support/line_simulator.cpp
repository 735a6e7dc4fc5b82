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
  if (got <= 0) return;
  quiet_ = false;
  const std::size_t before = way.faulty.met().size();
  for (ssize_t i = 0; i < got; ++i) {
    const FaultyDirection::Output output = way.faulty.pass(buffer[i]);
    for (std::size_t at = 0; at < output.count; ++at) put(way, output.bytes[at]);
  }
  faults_ += way.faulty.met().size() - before;
}

void LineSimulator::put(Way& way, const FaultyDirection::Byte& byte) {
  // A byte is on the line for its own time, behind those ahead of it.
  auto due = std::max(way.lineFree, Clock::now()) + std::chrono::milliseconds(settings_.delayMs * byte.delays);
  if (settings_.bytesPerSecond != 0) due += std::chrono::nanoseconds(1000000000 / settings_.bytesPerSecond);
  way.lineFree = due;
  way.queue.push_back({byte.value, due, byte.alone});
}

void LineSimulator::deliver(Way& way) {
  unsigned char buffer[kQueueLimit];
  std::size_t count = 0;
  const auto now = Clock::now();
  for (const Byte& byte : way.queue) {
    if (count == sizeof buffer || byte.due > now) break;
    if (byte.alone && (count > 0 || way.to.unread() > 0)) break;
    buffer[count++] = byte.value;
  }
  if (count == 0) return;
  const ssize_t put = ::write(way.to.master(), buffer, count);
  if (put > 0) way.queue.erase(way.queue.begin(), way.queue.begin() + put);
}
