// The ids of the pages on the screen.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

namespace jxplatform {

// Gives ids that rise for ever, over restarts too: a browser that still holds an id of an earlier run gets the page of
// this one, and a result it sends late is never taken for one of a page of this run. An id is a run number times a
// million and a count; the run number is above the last one, which is kept in a file, and no less than the seconds of
// the wall clock, so that it rises even where the file is lost. Stays below 2^53. Any thread.
class PageIds {
 public:
  static constexpr std::uint64_t kIdsPerRun = 1'000'000;

  // `file` keeps the last run number. Where it cannot be kept the clock alone makes ids rise.
  explicit PageIds(std::string file);

  [[nodiscard]] std::uint64_t next();

 private:
  void beginRun();

  const std::string file_;
  std::mutex mutex_;
  std::uint64_t run_ = 0;
  std::uint64_t count_ = kIdsPerRun;  // the first id begins a run
};

}  // namespace jxplatform
