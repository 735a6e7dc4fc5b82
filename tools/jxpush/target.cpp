#include "tools/jxpush/target.h"

#include "tools/jxpush/problem.h"
#include "tools/jxpush/serial_target.h"

namespace jxpush {

std::unique_ptr<Target> makeTarget(const std::string& address, const TargetOptions& options) {
  const std::string serial = "serial:";
  if (address.compare(0, serial.size(), serial) == 0 && address.size() > serial.size()) {
    return std::make_unique<SerialTarget>(address.substr(serial.size()), options);
  }
  throw Problem(ExitCode::kUsage, "--to takes serial:DEVICE, not " + address);
}

}  // namespace jxpush
