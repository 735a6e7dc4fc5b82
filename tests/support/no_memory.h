// Lets the calling thread run out of memory.
#pragma once

namespace noMemory {

// The thread's next `count` allocations by operator new succeed, every later one throws std::bad_alloc; -1: none does.
void after(int count);

// The thread's next allocation but `count` fails, and no other.
void once(int count);

// While one lives, the thread's allocations neither fail nor count: those of a test amid those of the code under test.
class Exempt {
 public:
  Exempt();
  Exempt(const Exempt&) = delete;
  Exempt& operator=(const Exempt&) = delete;
  ~Exempt();

 private:
  int left_;
};

// True when an allocation has failed since the last call of these.
bool met();

}  // namespace noMemory
