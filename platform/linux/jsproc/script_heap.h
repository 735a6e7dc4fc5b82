// A Duktape heap with a limit on its time and its memory.
#pragma once

#include <duktape.h>

#include <cstddef>
#include <cstdint>

namespace jxplatform {

// One script's heap. Duktape is told that time is over between a script's instructions, every few thousand; when a
// regular expression begins; and by refusing memory, which reaches the library functions that loop by themselves.
class ScriptHeap {
 public:
  static constexpr long kSecondsLimit = 1;  // of the thread's processor time, which a busy machine does not use up
  static constexpr std::size_t kMemoryLimit = std::size_t{8} << 20U;  // bytes, those of the engine itself included

  // The thread's processor time in which it lives is not the script's.
  class TimeOut {
   public:
    explicit TimeOut(ScriptHeap& heap);
    ~TimeOut();
    TimeOut(const TimeOut&) = delete;
    TimeOut& operator=(const TimeOut&) = delete;

   private:
    ScriptHeap& heap_;
    const std::int64_t began_;
  };

  // The time begins now. The context is null where there is no memory for it.
  ScriptHeap();
  ~ScriptHeap();
  ScriptHeap(const ScriptHeap&) = delete;
  ScriptHeap& operator=(const ScriptHeap&) = delete;

  duk_context* context() const { return context_; }
  [[nodiscard]] bool timeIsOver();  // once true, true for ever
  bool memoryRanOut() const { return memoryRanOut_; }

  // The script is handed `bytes` that are not its own making: the limit is higher by as many from now on.
  void allowMemory(std::size_t bytes) { memoryLimit_ += bytes; }

  // Duktape's allocation functions.
  [[nodiscard]] void* allocate(std::size_t size);
  [[nodiscard]] void* reallocate(void* block, std::size_t size);
  void release(void* block);

 private:
  // Whether a block may grow from `before` to `after` bytes.
  [[nodiscard]] bool mayGrow(std::size_t before, std::size_t after);

  std::int64_t deadline_;  // in nanoseconds of the thread's processor time
  bool timeIsOver_ = false;
  unsigned growths_ = 0;  // blocks that have grown, counted round
  std::size_t memoryLimit_ = kMemoryLimit;
  std::size_t used_ = 0;
  bool memoryRanOut_ = false;
  duk_context* context_ = nullptr;
};

}  // namespace jxplatform
