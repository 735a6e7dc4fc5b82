// The terminal that an address names.
#pragma once

#include <memory>
#include <string>

#include "tools/jxpush/common/target.h"

namespace jxpush {

// The full form of what a user types: "192.168.1.5" and "till-7.local:80" become "http://...", "/dev/ttyUSB0" becomes
// "serial:...". A name with a port but without a dot, "localhost" aside, could be anything and stays as it is, as the
// full forms do.
[[nodiscard]] std::string fullAddress(const std::string& typed);

// What two full addresses of one terminal have in common: the host in lower case with its zone and port, or the device
// that links lead to. Throws Problem(kUsage) for an address that names no terminal, with a message that begins with it.
[[nodiscard]] std::string addressKey(const std::string& address);

// Whether a full address names a serial line.
[[nodiscard]] bool isSerialAddress(const std::string& address);

// The target that the full address, such as "serial:/dev/ttyUSB0" or "http://192.168.1.5", names. Throws
// Problem(kUsage) as addressKey().
[[nodiscard]] std::unique_ptr<Target> makeTarget(const std::string& address, const TargetOptions& options);

}  // namespace jxpush
