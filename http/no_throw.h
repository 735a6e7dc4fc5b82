// What keeps exceptions within the engine's operations.
#pragma once

#include <exception>

namespace zorhtml {

// Called first in a handler that catches everything. The end of a thread by pthread_exit() or by a cancellation unwinds
// the stack as an exception does, but is none, and the C library ends the process when a handler stops it: it is thrown
// anew. Returns when it was an exception.
inline void passOnThreadExit() {
  if (!std::current_exception()) throw;
}

// The result of `step`; that of `otherwise` when `step` threw, for want of memory above all.
template <class Step, class Otherwise>
auto noThrow(Step step, Otherwise otherwise) {
  try {
    return step();
  } catch (...) {
    passOnThreadExit();
    return otherwise();
  }
}

}  // namespace zorhtml
