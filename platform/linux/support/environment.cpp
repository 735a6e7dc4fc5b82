#include "platform/linux/support/environment.h"

#include <cstdlib>

namespace jxplatform {

std::string environment(const char* name, const char* otherwise) {
  const char* const value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : otherwise;
}

}  // namespace jxplatform
