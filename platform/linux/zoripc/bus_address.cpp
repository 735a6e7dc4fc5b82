#include "platform/linux/zoripc/bus_address.h"

#include <unistd.h>

#include "platform/linux/support/environment.h"

namespace zoripc {

namespace {

using jxplatform::environment;

std::string sessionAddress() {
  std::string named = environment("DBUS_SESSION_BUS_ADDRESS");
  if (!named.empty()) return named;
  const std::string directory = environment("XDG_RUNTIME_DIR");
  const std::string path = directory + "/bus";
  return !directory.empty() && access(path.c_str(), F_OK) == 0 ? "unix:path=" + path : "";
}

std::string systemAddress() { return environment("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/run/dbus/system_bus_socket"); }

}  // namespace

std::string busAddress() {
  const std::string chosen = environment("JXPLATFORM_BUS");
  if (chosen == "system") return systemAddress();
  const std::string session = chosen.empty() || chosen == "session" ? sessionAddress() : chosen;
  return session.empty() && chosen.empty() ? systemAddress() : session;
}

}  // namespace zoripc
