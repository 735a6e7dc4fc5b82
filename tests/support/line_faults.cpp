#include "tests/support/line_faults.h"

#include <utility>

namespace {

constexpr LineFault kAllFaults[] = {LineFault::Drop, LineFault::Repeat, LineFault::Flip, LineFault::Insert,
                                    LineFault::Swap, LineFault::Delay,  LineFault::Split};

}  // namespace

FaultyDirection::FaultyDirection(std::vector<LineEvent> script, std::uint32_t oneIn, std::uint32_t seed)
    : script_(std::move(script)), oneIn_(oneIn) {
  if (oneIn != 0) random_.emplace(seed);
}

FaultyDirection::Output FaultyDirection::pass(unsigned char byte) {
  const bool swaps = std::exchange(holdsForSwap_, false);
  const unsigned char held = held_;
  Output output = meet(byte, passed_++);
  if (swaps) output.add(held);
  return output;
}

FaultyDirection::Output FaultyDirection::meet(unsigned char byte, std::size_t at) {
  const std::size_t metBefore = met_.size();
  Output output;
  output.add(byte);
  const auto meets = [&](const LineEvent& event) {
    apply(event, output);
    met_.push_back({event, byte, {}});
  };
  for (const LineEvent& event : script_) {
    if (event.at == at) meets(event);
  }
  if (met_.size() == metBefore && random_ && (*random_)() % oneIn_ == 0) {
    const LineFault fault = kAllFaults[(*random_)() % (sizeof kAllFaults / sizeof kAllFaults[0])];
    const auto value = static_cast<unsigned char>((*random_)() & 0xFFU);
    meets({at, fault, fault == LineFault::Delay ? static_cast<unsigned char>(1) : value});
  }
  for (std::size_t i = metBefore; i < met_.size(); ++i) met_[i].output = output;
  return output;
}

// What happens to the last byte of `output`.
void FaultyDirection::apply(const LineEvent& event, Output& output) {
  if (output.count == 0) {  // lost, or held, by the event before
    if (event.fault == LineFault::Insert) output.add(event.value);
    return;
  }
  Byte& byte = output.bytes[output.count - 1];
  switch (event.fault) {
    case LineFault::Drop:
      --output.count;
      break;
    case LineFault::Repeat:
      output.add(byte.value);
      break;
    case LineFault::Flip:
      byte.value = static_cast<unsigned char>(byte.value ^ (event.value == 0 ? 1U : event.value));
      break;
    case LineFault::Insert:
      output.add(std::exchange(byte.value, event.value));
      break;
    case LineFault::Swap:
      holdsForSwap_ = true;
      held_ = byte.value;
      --output.count;
      break;
    case LineFault::Delay:
      byte.delays += event.value == 0 ? 1U : event.value;
      break;
    case LineFault::Split:
      byte.alone = true;
      break;
  }
}
