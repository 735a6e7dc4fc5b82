// The disk's calls under the tests' control.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

// What the wrapped calls did since the test began, one word each: "write", "fsync file", "fsync folder", "rename".
struct DiskCalls {
  std::vector<std::string> seen;
  std::vector<int>
      interrupts;  // errno values that the next calls of pread(), write() and fsync() fail with, in turn; 0: works
  std::size_t largestPiece = 0;  // bytes that one pread() or write() takes at most; 0: all
  int folderError = 0;           // errno that fdopendir() fails with; 0: works
  int listingError = 0;          // errno that readdir() fails with, once; 0: works
  int renameError = 0;           // errno that rename() fails with; 0: works
  int closeError = 0;            // errno that close() of anything fails with, the descriptor being closed all the same
};

// Starts afresh.
void resetDiskCalls();
DiskCalls& diskCalls();
