// JSON as the program prints it: one object a line.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

namespace jxpush {

// `object` on one line, without a line end. Names come from outside: bytes that are no UTF-8 become U+FFFD. With
// `ascii`, for a user's terminal, which may obey other characters, all but those of ASCII are escaped.
[[nodiscard]] inline std::string jsonLine(const nlohmann::json& object, bool ascii = false) {
  return object.dump(-1, ' ', ascii, nlohmann::json::error_handler_t::replace);
}

// The same, as `stream` can take it.
[[nodiscard]] inline std::string jsonLine(const nlohmann::json& object, std::FILE* stream) {
  return jsonLine(object, isatty(fileno(stream)) != 0);
}

}  // namespace jxpush
