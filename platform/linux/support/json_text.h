// What every reader and writer of JSON texts has to know of the JSON library.
#pragma once

#include <cstddef>
#include <string>

namespace jxplatform {

// Where the first zero byte of `text` is, std::string::npos without one. The library takes it for the end of the text
// and would pass over whatever follows; no JSON has one, so that a text with it is to be refused.
[[nodiscard]] inline std::size_t findZeroByte(const std::string& text) { return text.find('\0'); }

// `text` as a JSON string, in its quotes; bytes that are not UTF-8 become U+FFFD.
[[nodiscard]] std::string quotedJson(const std::string& text);

}  // namespace jxplatform
