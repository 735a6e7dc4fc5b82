#include "platform/linux/jxapp/printable.h"

#include <algorithm>

namespace jxinstall {

std::string printable(const std::string& text) {
  constexpr std::size_t kMaxBytes = 100;
  std::string shown = text.substr(0, kMaxBytes);
  std::replace_if(
      shown.begin(), shown.end(), [](char c) { return c < ' ' || c > '~' || c == '"'; }, '?');
  if (text.size() > kMaxBytes) shown += "...";
  return '"' + shown + '"';
}

}  // namespace jxinstall
