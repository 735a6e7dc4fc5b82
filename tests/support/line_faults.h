// What a bad serial line does to the bytes that pass it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
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
    Byte bytes[4];
    std::size_t count = 0;
    void add(unsigned char value) { bytes[count++] = {value, 0, false}; }
  };

  FaultyDirection() = default;  // without faults
  // The events of `script`, at most two at a byte, in their order; besides, one byte in `oneIn` has a fault of a kind
  // that `seed` chooses, none when 0.
  explicit FaultyDirection(std::vector<LineEvent> script, std::uint32_t oneIn = 0, std::uint32_t seed = 1);

  Output pass(unsigned char byte);

  // A fault, the byte that met it, and what became of the byte by all that it met.
  struct Met {
    LineEvent event;
    unsigned char byte;
    Output output;
  };

  // What the bytes have met.
  const std::vector<Met>& met() const { return met_; }

 private:
  Output meet(unsigned char byte, std::size_t at);
  void apply(const LineEvent& event, Output& output);

  std::vector<LineEvent> script_;
  std::uint32_t oneIn_ = 0;
  std::optional<std::mt19937> random_;  // of faults by chance; seeding one takes long
  std::size_t passed_ = 0;
  std::vector<Met> met_;
  bool holdsForSwap_ = false;
  unsigned char held_ = 0;
};
