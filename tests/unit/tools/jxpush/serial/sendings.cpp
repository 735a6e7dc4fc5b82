#include "tests/unit/tools/jxpush/serial/sendings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

using namespace jxpush;

namespace {

constexpr std::chrono::milliseconds kDelay{1500};

std::vector<SentByte> numbered(const std::vector<bool>& toHost) {
  std::vector<SentByte> bytes;
  std::size_t counts[2] = {};
  for (const bool back : toHost) bytes.push_back({back, counts[back ? 1 : 0]++});
  return bytes;
}

std::string nameOf(const Place& place) {
  return place.fault.name + std::string(place.byte.toHost ? "<" : ">") + std::to_string(place.byte.at);
}

}  // namespace

// 13 hex makes a NAK of an ACK, and the other way round. The delays are of 1.5 s, of 6 s, which is longer than the
// answer to a record is waited for, and of 18 s, longer than the sender waits at all.
const std::vector<Fault> kFaults = {{"Drop", LineFault::Drop, 0},           {"Repeat", LineFault::Repeat, 0},
                                    {"FlipLow", LineFault::Flip, 0x01},     {"FlipHigh", LineFault::Flip, 0x80},
                                    {"FlipAnswer", LineFault::Flip, 0x13},  {"InsertAck", LineFault::Insert, 0x06},
                                    {"InsertNak", LineFault::Insert, 0x15}, {"InsertStx", LineFault::Insert, 0x02},
                                    {"InsertEnq", LineFault::Insert, 0x05}, {"InsertEot", LineFault::Insert, 0x04},
                                    {"Swap", LineFault::Swap, 0},           {"Delay", LineFault::Delay, 1},
                                    {"DelayLong", LineFault::Delay, 4},     {"DelayBeyond", LineFault::Delay, 12}};

Sendings::Sendings(Contents contents, const Circumstances& met) : contents_(std::move(contents)) {
  for (std::size_t i = 0; i < contents_.size(); ++i) files_.add("f" + std::to_string(i), contents_[i]);
  meet(met, {{}});
}

void Sendings::meet(const Circumstances& met, const std::vector<Contents>& before) {
  met_ = met;
  met_.line.delay = kDelay;
  before_ = before;
  bytes_ = numbered(send({}).bytes);
}

std::vector<SentByte> Sendings::bytesFrom(const Place& first) {
  const std::vector<SentByte> bytes = numbered(send({first}).bytes);
  const auto from = std::find_if(bytes.begin(), bytes.end(), [&](const SentByte& byte) {
    return byte.toHost == first.byte.toHost && byte.at == first.byte.at;
  });
  return {from, bytes.end()};
}

std::string Sendings::complaint(const std::vector<Place>& faults) {
  const SessionEnd end = send(faults);
  ++(end.sender == ExitCode::kSent ? sent : failed);
  if (end.sender != ExitCode::kSent || isWhole(end)) return "";
  if (end.nakBecameAck) return ++deceived, "";
  std::string text = "code 0 with";
  for (const Place& place : faults) text += " " + nameOf(place);
  for (const std::string& file : end.files) text += ", a file of " + std::to_string(file.size());
  return text + ", terminal " + std::to_string(end.terminal);
}

SessionEnd Sendings::send(const std::vector<Place>& faults) {
  Circumstances met = met_;
  std::vector<LineEvent> there;
  std::vector<LineEvent> back;
  for (const Place& place : faults) {
    (place.byte.toHost ? back : there).push_back({place.byte.at, place.fault.kind, place.fault.value});
  }
  met.toTerminal = FaultyDirection(there);
  met.toHost = FaultyDirection(back);
  return sendOver(met, files_.files());
}

// The terminal has installed the files, and what another host has left stands before them as it did.
bool Sendings::isWhole(const SessionEnd& end) const {
  return end.terminal == 0 && std::any_of(before_.begin(), before_.end(), [&](const Contents& before) {
           Contents expected = before;
           expected.insert(expected.end(), contents_.begin(), contents_.end());
           return end.files == expected;
         });
}

Circumstances gathered() {
  Circumstances met;
  met.line.tick = std::chrono::milliseconds(2);
  return met;
}

Circumstances instant() {
  Circumstances met;
  met.line.bytesPerSecond = 0;
  return met;
}
