// Bodies that are held whole in memory; their lengths are ints.
#pragma once

#include <cstddef>
#include <limits>
#include <stdexcept>

namespace zorhtml {

// `size` as the length of a body; -1, which no write of a body accepts, when it does not fit.
constexpr int bodyLength(std::size_t size) {
  return size > static_cast<std::size_t>(std::numeric_limits<int>::max()) ? -1 : static_cast<int>(size);
}

// Appends blocks of 4096 bytes to the empty `body` by readBlock(data, length), which returns the number of bytes read
// or -1, until one comes up short. Returns the length; -1 on failure. Throws std::length_error when it would not fit an
// int. In both cases `body` is then to be cleared.
template <class Body, class ReadBlock>
int gatherBlocks(Body& body, ReadBlock readBlock) {
  constexpr int kBlock = 4096;
  int total = 0;
  for (;;) {
    if (total > std::numeric_limits<int>::max() - kBlock) throw std::length_error("body");
    body.resize(static_cast<std::size_t>(total) + kBlock);
    const int count = readBlock(&body[static_cast<std::size_t>(total)], kBlock);
    if (count < 0) return -1;
    total += count;
    if (count == kBlock) continue;
    body.resize(static_cast<std::size_t>(total));
    return total;
  }
}

}  // namespace zorhtml
