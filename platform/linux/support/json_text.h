// What every reader of JSON texts has to know of the JSON library.
#pragma once

#include <cstddef>
#include <string>

namespace jxplatform {

// Where the first zero byte of `text` is, std::string::npos without one. The library takes it for the end of the text
// and would pass over whatever follows; no JSON has one, so that a text with it is to be refused.
inline std::size_t findZeroByte(const std::string& text) { return text.find('\0'); }

}  // namespace jxplatform
