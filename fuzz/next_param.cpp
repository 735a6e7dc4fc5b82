// Any text as a header value: the walk ends, moves forward, and makes no more text than it was given.
#include "http/next_param.h"

#include "fuzz/input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::string name;
  std::string value;
  std::size_t made = 0;
  for (std::size_t at = 0, before = 0;; before = at) {
    const int kind = nextParam(text, at, name, value);
    require(kind >= 0 && kind <= 2 && at <= size);
    if (kind == 0) break;
    require(at > before);
    require(kind == 2 || value.empty());
    made += name.size() + value.size();
  }
  require(made <= size);
  return 0;
}
