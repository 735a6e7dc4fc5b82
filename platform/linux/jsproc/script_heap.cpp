#include "platform/linux/jsproc/script_heap.h"

#include <cstdlib>
#include <ctime>

#include "base/ignore.h"

namespace jxplatform {
namespace {

constexpr unsigned kStepsLimit = 2'000'000;
constexpr unsigned kGrowthsPerLook = 64;
constexpr std::int64_t kNanoseconds = 1'000'000'000;  // in a second

// Stands before each block and keeps what follows aligned for anything.
union BlockHeader {
  std::size_t size;
  std::max_align_t alignment;
};

BlockHeader* headerOf(void* block) { return static_cast<BlockHeader*>(block) - 1; }

void* allocateFor(void* heap, duk_size_t size) { return static_cast<ScriptHeap*>(heap)->allocate(size); }
void* reallocateFor(void* heap, void* block, duk_size_t size) {
  return static_cast<ScriptHeap*>(heap)->reallocate(block, size);
}
void releaseFor(void* heap, void* block) { static_cast<ScriptHeap*>(heap)->release(block); }

std::int64_t processorTime() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return std::int64_t{now.tv_sec} * kNanoseconds + now.tv_nsec;
}

// Everything runs in protected calls, so nothing but a defect of ours ends here; Duktape allows no return from it.
[[noreturn]] void fatal(void* /*heap*/, const char* /*message*/) { std::abort(); }

}  // namespace

extern "C" int jxDuktapeTimeIsOver(void* heapUserData) { return static_cast<ScriptHeap*>(heapUserData)->timeIsOver(); }

extern "C" unsigned jxDuktapeStepsLimit(void* heapUserData) {
  return static_cast<ScriptHeap*>(heapUserData)->timeIsOver() ? 1 : kStepsLimit;
}

ScriptHeap::TimeOut::TimeOut(ScriptHeap& heap) : heap_(heap), began_(processorTime()) {}

ScriptHeap::TimeOut::~TimeOut() { heap_.deadline_ += processorTime() - began_; }

ScriptHeap::ScriptHeap() : deadline_(processorTime() + kSecondsLimit * kNanoseconds) {
  context_ = duk_create_heap(allocateFor, reallocateFor, releaseFor, this, fatal);
}

ScriptHeap::~ScriptHeap() {
  if (context_ != nullptr) duk_destroy_heap(context_);
}

bool ScriptHeap::timeIsOver() {
  if (timeIsOver_) return true;
  timeIsOver_ = processorTime() >= deadline_;
  return timeIsOver_;
}

bool ScriptHeap::mayGrow(std::size_t before, std::size_t after) {
  if (after <= before) return true;
  if (after > memoryLimit_ || used_ - before > memoryLimit_ - after) {
    memoryRanOut_ = true;
    return false;
  }
  if (growths_++ % kGrowthsPerLook == 0) base::ignore(timeIsOver());  // asking the clock costs a system call
  return !timeIsOver_;
}

void* ScriptHeap::allocate(std::size_t size) { return size == 0 ? nullptr : reallocate(nullptr, size); }

void* ScriptHeap::reallocate(void* block, std::size_t size) {
  if (size == 0) {
    release(block);
    return nullptr;
  }
  const std::size_t before = block == nullptr ? 0 : headerOf(block)->size;
  if (!mayGrow(before, size)) return nullptr;
  void* const moved = std::realloc(block == nullptr ? nullptr : headerOf(block), sizeof(BlockHeader) + size);
  if (moved == nullptr) {
    memoryRanOut_ = true;
    return nullptr;
  }
  used_ = used_ - before + size;
  auto* const header = static_cast<BlockHeader*>(moved);
  header->size = size;
  return header + 1;
}

void ScriptHeap::release(void* block) {
  if (block == nullptr) return;
  used_ -= headerOf(block)->size;
  std::free(headerOf(block));
}

}  // namespace jxplatform
