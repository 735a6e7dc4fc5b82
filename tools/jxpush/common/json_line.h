// JSON as the program prints it: one object a line.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace jxpush {

// `object` on one line, without a line end. Names come from outside: bytes that are no UTF-8 become U+FFFD.
[[nodiscard]] inline std::string jsonLine(const nlohmann::json& object) {
  return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace jxpush
