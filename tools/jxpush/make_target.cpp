#include "tools/jxpush/make_target.h"

#include "base/text.h"
#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/http/target.h"
#include "tools/jxpush/serial/target.h"

namespace jxpush {

std::unique_ptr<Target> makeTarget(const std::string& address, const TargetOptions& options) {
  const std::string serial = "serial:";
  if (base::beginsWith(address, serial) && address.size() > serial.size()) {
    return std::make_unique<SerialTarget>(address.substr(serial.size()), options);
  }
  if (isHttpTarget(address)) return std::make_unique<HttpTarget>(parseHttpAddress(address), options);
  throw Problem(ExitCode::kUsage, "--to takes serial:DEVICE or http://HOST[:PORT], not " + address);
}

}  // namespace jxpush
