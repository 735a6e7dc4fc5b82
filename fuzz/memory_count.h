// Counts the memory that the calling thread has from operator new. That of the C library's own is not seen.
#pragma once

#include <cstddef>

namespace memoryCount {

// Counts from 0 on.
void begin();

// The most bytes that were in use at one time since then.
std::size_t peak();

}  // namespace memoryCount
