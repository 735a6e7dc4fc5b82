#include "tools/jxpush/make_target.h"

#include <cstdlib>

#include "base/host_port.h"
#include "base/text.h"
#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/http/target.h"
#include "tools/jxpush/serial/target.h"

namespace jxpush {

namespace {

const std::string kSerial = "serial:";

std::string deviceOf(const std::string& address) { return address.substr(kSerial.size()); }

[[noreturn]] void refuse(const std::string& address) {
  throw Problem(ExitCode::kUsage,
                address + ": no terminal; wanted is serial:DEVICE, http://HOST[:PORT], a device's path or a host");
}

std::string realDevice(const std::string& device) {
  char* const path = realpath(device.c_str(), nullptr);
  std::string real = path == nullptr ? device : path;
  std::free(path);
  return real;
}

bool isScheme(const std::string& host) {
  return host.find('.') == std::string::npos && base::lowerCase(host) != "localhost";
}

}  // namespace

std::string fullAddress(const std::string& typed) {
  if (base::beginsWith(typed, "/")) return kSerial + typed;
  if (typed.empty() || base::beginsWith(typed, "[")) return typed.empty() ? typed : "http://" + typed;
  const std::size_t colon = typed.find(':');
  if (colon != std::string::npos && isScheme(typed.substr(0, colon))) return typed;
  return "http://" + typed;
}

bool isSerialAddress(const std::string& address) {
  return base::beginsWith(address, kSerial) && address.size() > kSerial.size();
}

std::string addressKey(const std::string& address) {
  if (isSerialAddress(address)) return kSerial + realDevice(deviceOf(address));
  if (!isHttpTarget(address)) refuse(address);
  const HttpAddress http = parseHttpAddress(address);
  return base::lowerCase(base::hostAndPort(http.host, http.port));
}

std::unique_ptr<Target> makeTarget(const std::string& address, const TargetOptions& options) {
  if (isSerialAddress(address)) return std::make_unique<SerialTarget>(deviceOf(address), options);
  if (!isHttpTarget(address)) refuse(address);
  return std::make_unique<HttpTarget>(parseHttpAddress(address), options);
}

}  // namespace jxpush
