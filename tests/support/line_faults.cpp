#include "tests/support/line_faults.h"

#include <utility>

namespace {

constexpr LineFault kAllFaults[] = {LineFault::Drop, LineFault::Repeat, LineFault::Flip, LineFault::Insert,
                                    LineFault::Swap, LineFault::Delay,  LineFault::Split};

}  // namespace

FaultyDirection::FaultyDirection(std::vector<LineEvent> script, std::uint32_t oneIn, std::uint32_t seed)
    : script_(std::move(script)), oneIn_(oneIn), random_(seed) {}

FaultyDirection::Output FaultyDirection::pass(unsigned char byte) {
  const bool swaps = std::exchange(holdsForSwap_, false);
  const unsigned char held = held_;
  Output output = meet(byte, passed_++);
  if (swaps) output.add(held);
  return output;
}

FaultyDirection::Output FaultyDirection::meet(unsigned char byte, std::size_t at) {
  for (const LineEvent& event : script_) {
    if (event.at == at) return apply(event, byte);
  }
  if (oneIn_ != 0 && random_() % oneIn_ == 0) {
    const LineFault fault = kAllFaults[random_() % (sizeof kAllFaults / sizeof kAllFaults[0])];
    const auto value = static_cast<unsigned char>(random_() & 0xFFU);
    return apply({at, fault, fault == LineFault::Delay ? static_cast<unsigned char>(1) : value}, byte);
  }
  Output output;
  output.add(byte);
  return output;
}

FaultyDirection::Output FaultyDirection::apply(const LineEvent& event, unsigned char byte) {
  met_.push_back({event, byte});
  Output output;
  switch (event.fault) {
    case LineFault::Drop:
      break;
    case LineFault::Repeat:
      output.add(byte);
      output.add(byte);
      break;
    case LineFault::Flip:
      output.add(static_cast<unsigned char>(byte ^ (event.value == 0 ? 1U : event.value)));
      break;
    case LineFault::Insert:
      output.add(event.value);
      output.add(byte);
      break;
    case LineFault::Swap:
      holdsForSwap_ = true;
      held_ = byte;
      break;
    case LineFault::Delay:
      output.add(byte, event.value == 0 ? 1U : event.value);
      break;
    case LineFault::Split:
      output.add(byte, 0, true);
      break;
  }
  return output;
}
