// Small text tools. Letters and digits are those of ASCII, whatever the locale; no function blocks or fails but for
// want of memory.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace base {

[[nodiscard]] constexpr bool beginsWith(std::string_view text, std::string_view beginning) {
  return text.substr(0, beginning.size()) == beginning;
}

[[nodiscard]] constexpr bool endsWith(std::string_view text, std::string_view ending) {
  return text.size() >= ending.size() && text.substr(text.size() - ending.size()) == ending;
}

[[nodiscard]] constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

[[nodiscard]] constexpr bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// `text` with the letters A to Z in lower case.
[[nodiscard]] std::string lowerCase(std::string text);

// Two lower-case hex digits for each of `size` bytes at `bytes`.
[[nodiscard]] std::string hexDigits(const unsigned char* bytes, std::size_t size);

// Whether `c` is printable ASCII, the blank included.
[[nodiscard]] constexpr bool isPrintable(char c) { return c >= ' ' && c <= '~'; }

// Whether `c` is a control character of ASCII.
[[nodiscard]] constexpr bool isControl(char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }

// `text` with "?" for every control character, which a terminal may obey; UTF-8 stays.
[[nodiscard]] std::string withoutControls(std::string text);

// `text` with "?" for every byte that is not printable ASCII: fit for a terminal or a log.
[[nodiscard]] std::string printable(std::string text);

// The same in double quotes, for names from outside in a message: a double quote becomes "?" too, and "..." stands for
// what follows the first 100 bytes.
[[nodiscard]] std::string quotedPrintable(const std::string& text);

}  // namespace base
