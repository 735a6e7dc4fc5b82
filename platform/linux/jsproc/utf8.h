// UTF-8 to and from the encoding that Duktape keeps strings in.
#pragma once

#include <cstddef>
#include <string>

namespace jxplatform {

// Duktape's strings are CESU-8: UTF-8 in which a character above U+FFFF is its two surrogates, three bytes each.

// `text` as CESU-8. A byte that does not belong to valid UTF-8 becomes U+FFFD.
[[nodiscard]] std::string toCesu8(const std::string& text);

// The `size` bytes at `data` as UTF-8: surrogate pairs joined; a lone surrogate or any other byte becomes U+FFFD.
[[nodiscard]] std::string fromCesu8(const char* data, std::size_t size);

}  // namespace jxplatform
