// What the fuzzers share: input cut into pieces, and checks that end the process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tests/support/scripted_stream.h"

// Ends the process unless `held`: that is how a fuzzer reports a finding.
inline void require(bool held) {
  if (!held) std::abort();
}

// A peer that sends the input, whose first byte says in what pieces, and then closes.
inline ScriptedPeer peerOf(const std::uint8_t* data, std::size_t size) {
  ScriptedPeer peer;
  if (size == 0) return peer;
  const std::size_t piece = data[0] < 200 ? data[0] + 1U : 4096U;
  peer.sendInPieces(std::string(reinterpret_cast<const char*>(data) + 1, size - 1), piece);
  return peer;
}
