#include "http/whole_body.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <stdexcept>

namespace {

// Counts its size without holding the bytes.
struct Weightless {
  std::size_t size = 0;
  char block[1] = {};
  void resize(std::size_t newSize) { size = newSize; }
  char& operator[](std::size_t) { return block[0]; }
};

TEST(GatherBlocks, BodyBeyondAnInt_ThrowsBeforeItOverflows) {
  Weightless body;
  int calls = 0;
  EXPECT_THROW(zorhtml::gatherBlocks(body, [&](void*, int size) { return ++calls, size; }), std::length_error);
  EXPECT_EQ(calls, 524287);
  EXPECT_EQ(body.size, 2147479552U);
}

TEST(BodyLength, SizeBeyondAnInt_IsMinusOne) {
  EXPECT_EQ(zorhtml::bodyLength(0), 0);
  EXPECT_EQ(zorhtml::bodyLength(2147483647U), 2147483647);
  EXPECT_EQ(zorhtml::bodyLength(2147483648U), -1);
  EXPECT_EQ(zorhtml::bodyLength(static_cast<std::size_t>(-1)), -1);
}

}  // namespace
