#include "platform/linux/zorguiprt/page_ids.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <utility>

#include "base/atomic_file.h"
#include "base/ignore.h"

namespace jxplatform {
namespace {

// More cannot be a run number of ours: the wall clock reaches it in the year 2239.
constexpr std::uint64_t kLargestRun = 8'500'000'000;

std::uint64_t lastRun(const std::string& file) {
  std::ifstream stream(file);
  std::uint64_t run = 0;
  return stream >> run && run < kLargestRun ? run : 0;
}

}  // namespace

PageIds::PageIds(std::string file) : file_(std::move(file)) {}

std::uint64_t PageIds::next() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (count_ == kIdsPerRun) beginRun();
  return run_ * kIdsPerRun + count_++;
}

void PageIds::beginRun() {
  const auto now = static_cast<std::uint64_t>(std::max<std::int64_t>(std::time(nullptr), 1));
  run_ = std::max({run_ + 1, lastRun(file_) + 1, std::min(now, kLargestRun)});
  count_ = 0;
  // Without the file the wall clock alone keeps this run's numbers apart from those of the next.
  base::ignore(base::replaceFile(file_, std::to_string(run_) + "\n", base::Flush::kNo, "." + std::to_string(getpid())));
}

}  // namespace jxplatform
