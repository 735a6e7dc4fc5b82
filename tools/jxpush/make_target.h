// The terminal that an address names.
#pragma once

#include <memory>
#include <string>

#include "tools/jxpush/common/target.h"

namespace jxpush {

// The target that `address`, such as "serial:/dev/ttyUSB0" or "http://192.168.1.5", names. Throws Problem(kUsage).
[[nodiscard]] std::unique_ptr<Target> makeTarget(const std::string& address, const TargetOptions& options);

}  // namespace jxpush
