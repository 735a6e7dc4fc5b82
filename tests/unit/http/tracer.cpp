#include "tests/unit/http/tracer.h"

// Apart from their callers: a compiler that puts only one of the pair in place takes the other for a stranger.
void* Tracer::operator new(std::size_t size) { return ::operator new(size); }

void Tracer::operator delete(void* object) {
  ++deletions;
  ::operator delete(object);
}
