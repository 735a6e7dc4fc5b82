// The disk's calls under the tests' control.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

// What the wrapped calls did since the test began, one word each: "write", "fsync file", "fsync folder", "rename".
struct DiskCalls {
  std::vector<std::string> seen;
  std::vector<int> interrupts;   // errno values that the next calls of write() and fsync() fail with, in turn
  std::size_t largestWrite = 0;  // bytes that one write() takes at most; 0: all
  int renameError = 0;           // errno that rename() fails with; 0: works
  int closeError = 0;            // errno that close() of anything fails with, the descriptor being closed all the same
};

// Starts afresh.
void resetDiskCalls();
DiskCalls& diskCalls();
