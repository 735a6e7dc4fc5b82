// Steps through the value of a header field, token by token and parameter by parameter.
#pragma once

#include <cstddef>
#include <string>

constexpr int kNoToken = 0;    // the text is used up
constexpr int kBareToken = 1;  // `name` alone; `value` is empty
constexpr int kNameValue = 2;  // `name` = `value`

// Reads what comes next in `text` from `pos` on, moves `pos` behind it and overwrites `name` and `value`. Separators
// are those of HTTP/1.1 without the slash, so that a media type is one token. A value may be quoted; in quotes a
// backslash takes the next character literally, and the end of the text ends an open quote. Returns one of the above.
int nextParam(const std::string& text, std::size_t& pos, std::string& name, std::string& value);
