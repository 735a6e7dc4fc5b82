#include "platform/linux/support/json_text.h"

#include <nlohmann/json.hpp>

namespace jxplatform {

std::string quotedJson(const std::string& text) {
  using nlohmann::json;
  return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace jxplatform
