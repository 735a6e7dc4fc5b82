// A serial line with faults, between two pseudo-terminals.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/pty_pair.h"

class LineSimulator {
 public:
  enum class Fault { Drop, Repeat, Flip, Insert, Swap, Delay, Split, Hold };
  // Those that need no answer from the far end.
  static constexpr Fault kAllFaults[] = {Fault::Drop, Fault::Repeat, Fault::Flip, Fault::Insert,
                                         Fault::Swap, Fault::Delay,  Fault::Split};

  // A fault at one byte, counted from 0 in its direction.
  struct Event {
    std::size_t at;
    Fault fault;
    // Flip: the bits, 0 means the lowest; Insert: the byte; Hold: how many bytes its reader must send before it gets
    // this one and what is behind it
    unsigned char value = 0;
  };

  // One direction of the line.
  struct Direction {
    std::vector<Event> script;
    std::uint32_t oneIn =
        0;  // besides the script, one byte in so many has a fault of a kind chosen by the seed; 0: none
  };

  struct Settings {
    Direction toTerminal;
    Direction toHost;
    std::uint32_t seed = 1;
    std::uint32_t bytesPerSecond = 0;  // in each direction; 0: as fast as it goes
    std::uint32_t delayMs = 30;        // of a Delay
  };

  // The line stands when the constructor returns.
  explicit LineSimulator(const Settings& settings);
  LineSimulator(const LineSimulator&) = delete;
  LineSimulator& operator=(const LineSimulator&) = delete;
  ~LineSimulator();

  const std::string& hostPath() const { return host_.path(); }
  const std::string& terminalPath() const { return terminal_.path(); }
  const PtyPair& hostEnd() const { return host_; }
  const PtyPair& terminalEnd() const { return terminal_; }

  // Passes nothing on any more, in either direction. Any thread.
  void cut() { cut_ = true; }
  // Nothing is under way to the terminal, and it has read all that arrived. Any thread.
  bool quiet() const { return quiet_ && terminal_.unread() == 0; }
  // How many faults there were. Any thread.
  std::size_t faults() const { return faults_; }
  // How many bytes came in for the terminal. Any thread.
  std::size_t sentToTerminal() const { return forward_.seen; }

 private:
  using Clock = std::chrono::steady_clock;

  struct Byte {
    unsigned char value;
    Clock::time_point due;
    bool alone;          // not before the reader has taken what is ahead of it
    std::size_t heldTo;  // not before so many bytes came in the other direction
  };

  struct Way {
    Way(const PtyPair& source, const PtyPair& sink, const Direction& settings, std::uint32_t seed)
        : from(source), to(sink), direction(settings), random(seed) {}
    const PtyPair& from;
    const PtyPair& to;
    const Direction& direction;
    std::mt19937 random;
    std::atomic<std::size_t> seen{0};
    const Way* opposite = nullptr;
    std::deque<Byte> queue;
    Clock::time_point lineFree;
    bool holdForSwap = false;
    unsigned char held = 0;
  };

  void run();
  void waitForWork();
  void take(Way& way);
  void accept(Way& way, unsigned char byte);
  void apply(Way& way, const Event& event, unsigned char byte);
  void put(Way& way, unsigned char byte, std::uint32_t extraMs = 0, bool alone = false, std::size_t heldTo = 0);
  static void deliver(Way& way);

  const Settings settings_;
  PtyPair host_;
  PtyPair terminal_;
  Way forward_;
  Way backward_;
  std::atomic<bool> cut_{false};
  std::atomic<bool> stop_{false};
  std::atomic<bool> quiet_{true};
  std::atomic<std::size_t> faults_{0};
  int wake_[2] = {-1, -1};
  std::thread thread_;
};
