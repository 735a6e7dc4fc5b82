// What the process's environment says.
#pragma once

#include <string>

namespace jxplatform {

// The value of the variable `name`; `otherwise` where there is none, or an empty one.
[[nodiscard]] std::string environment(const char* name, const char* otherwise = "");

}  // namespace jxplatform
