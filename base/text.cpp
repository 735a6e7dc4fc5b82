#include "base/text.h"

#include <algorithm>

namespace base {

std::string lowerCase(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

std::string hexDigits(const unsigned char* bytes, std::size_t size) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * size);
  for (std::size_t i = 0; i < size; ++i) {
    text += kDigits[bytes[i] >> 4U];
    text += kDigits[bytes[i] & 0xFU];
  }
  return text;
}

std::string withoutControls(std::string text) {
  std::replace_if(text.begin(), text.end(), isControl, '?');
  return text;
}

std::string printable(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return !isPrintable(c); }, '?');
  return text;
}

std::string quotedPrintable(const std::string& text) {
  constexpr std::size_t kMaxBytes = 100;
  std::string shown = printable(text.substr(0, kMaxBytes));
  std::replace(shown.begin(), shown.end(), '"', '?');
  if (text.size() > kMaxBytes) shown += "...";
  return '"' + shown + '"';
}

}  // namespace base
