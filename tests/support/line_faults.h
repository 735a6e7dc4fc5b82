// What a bad serial line does to the bytes that pass it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

enum class LineFault { Drop, Repeat, Flip, Insert, Swap, Delay, Split };

// A fault at one byte, counted from 0 in its direction.
struct LineEvent {
  std::size_t at;
  LineFault fault;
  // Flip: the bits, 0 means the lowest; Insert: the byte, which comes before that at `at`; Delay: how many times the
  // line's delay, 0 means once
  unsigned char value = 0;
};

// One direction of a line.
class FaultyDirection {
 public:
  struct Byte {
    unsigned char value;
    unsigned delays;  // how many times the line's delay it is late
    bool alone;       // not before its reader has taken what is ahead of it
  };
  // What comes out for one byte that goes in: nothing, itself, or more.
  struct Output {
    Byte bytes[3];
    std::size_t count = 0;
    void add(unsigned char value, unsigned delays = 0, bool alone = false) { bytes[count++] = {value, delays, alone}; }
  };

  FaultyDirection() = default;  // without faults
  // The events of `script`; besides, one byte in `oneIn` has a fault of a kind that `seed` chooses, none when 0.
  explicit FaultyDirection(std::vector<LineEvent> script, std::uint32_t oneIn = 0, std::uint32_t seed = 1);

  Output pass(unsigned char byte);

  // A fault, and the byte that met it.
  struct Met {
    LineEvent event;
    unsigned char byte;
  };

  // How many bytes went in, and what they met.
  std::size_t passed() const { return passed_; }
  const std::vector<Met>& met() const { return met_; }

 private:
  Output meet(unsigned char byte, std::size_t at);
  Output apply(const LineEvent& event, unsigned char byte);

  std::vector<LineEvent> script_;
  std::uint32_t oneIn_ = 0;
  std::mt19937 random_;
  std::size_t passed_ = 0;
  std::vector<Met> met_;
  bool holdsForSwap_ = false;
  unsigned char held_ = 0;
};
