#include "platform/linux/zorguiprt/request_target.h"

#include <algorithm>
#include <charconv>

namespace jxplatform {
namespace {

// Takes what stands before the first `delimiter` off `text`, and the delimiter with it.
std::string_view takeUntil(std::string_view& text, char delimiter) {
  const std::string_view taken = text.substr(0, text.find(delimiter));
  text.remove_prefix(std::min(taken.size() + 1, text.size()));
  return taken;
}

// The byte that the two hex digits at the beginning of `text` name; -1 where there are none.
int byteOf(std::string_view text) {
  unsigned char byte = 0;
  const char* const end = text.data() + std::min<std::size_t>(text.size(), 2);
  const auto read = std::from_chars(text.data(), end, byte, 16);
  return read.ptr == text.data() + 2 ? byte : -1;
}

std::string decode(std::string_view text) {
  std::string decoded;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const int byte = text[at] == '%' ? byteOf(text.substr(at + 1)) : -1;
    decoded += byte >= 0 ? static_cast<char>(byte) : text[at];
    if (byte >= 0) at += 2;
  }
  return decoded;
}

std::string decodeInQuery(std::string text) {
  std::replace(text.begin(), text.end(), '+', ' ');
  return decode(text);
}

std::string withoutDoubledSlash(const std::string& path) {
  const std::size_t begin = std::min(path.find_first_not_of('/'), path.size());
  return begin < 2 ? path : path.substr(begin - 1);
}

}  // namespace

RequestTarget parseTarget(std::string_view target) {
  std::string_view query = takeUntil(target, '#');
  RequestTarget parsed;
  parsed.path = withoutDoubledSlash(decode(takeUntil(query, '?')));
  while (!query.empty()) {
    std::string_view value = takeUntil(query, '&');
    const std::string_view name = takeUntil(value, '=');
    parsed.parameters.emplace(decodeInQuery(std::string(name)), decodeInQuery(std::string(value)));
  }
  return parsed;
}

}  // namespace jxplatform
