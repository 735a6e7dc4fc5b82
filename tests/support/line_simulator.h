// A serial line with faults, between two pseudo-terminals.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <thread>

#include "tests/support/line_faults.h"
#include "tests/support/pty_pair.h"

class LineSimulator {
 public:
  struct Settings {
    std::uint32_t toTerminal = 0;  // one byte in so many has a fault; 0: none
    std::uint32_t toHost = 0;
    std::uint32_t seed = 1;
    std::uint32_t bytesPerSecond = 0;  // in each direction; 0: as fast as it goes
    std::uint32_t delayMs = 30;        // of a byte that is late
  };

  // The line stands when the constructor returns.
  explicit LineSimulator(const Settings& settings);
  LineSimulator(const LineSimulator&) = delete;
  LineSimulator& operator=(const LineSimulator&) = delete;
  ~LineSimulator();

  const std::string& hostPath() const { return host_.path(); }
  const std::string& terminalPath() const { return terminal_.path(); }
  const PtyPair& hostEnd() const { return host_; }

  // Nothing is under way to the terminal, and it has read all that arrived. Any thread.
  bool quiet() const { return quiet_ && terminal_.unread() == 0; }
  // How many faults there were. Any thread.
  std::size_t faults() const { return faults_; }

 private:
  using Clock = std::chrono::steady_clock;

  struct Byte {
    unsigned char value;
    Clock::time_point due;
    bool alone;  // not before the reader has taken what is ahead of it
  };

  struct Way {
    Way(const PtyPair& source, const PtyPair& sink, std::uint32_t oneIn, std::uint32_t seed)
        : from(source), to(sink), faulty({}, oneIn, seed) {}
    const PtyPair& from;
    const PtyPair& to;
    FaultyDirection faulty;
    std::deque<Byte> queue;
    Clock::time_point lineFree;
  };

  void run();
  void waitForWork();
  void take(Way& way);
  void put(Way& way, const FaultyDirection::Byte& byte);
  static void deliver(Way& way);

  const Settings settings_;
  PtyPair host_;
  PtyPair terminal_;
  Way forward_;
  Way backward_;
  std::atomic<bool> stop_{false};
  std::atomic<bool> quiet_{true};
  std::atomic<std::size_t> faults_{0};
  int wake_[2] = {-1, -1};
  std::thread thread_;
};
