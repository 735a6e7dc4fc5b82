#include "platform/linux/zoripc/bus_address.h"

#include <unistd.h>

#include <cstdlib>

namespace zoripc {

namespace {

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::string sessionAddress() {
  std::string named = variable("DBUS_SESSION_BUS_ADDRESS");
  if (!named.empty()) return named;
  const std::string directory = variable("XDG_RUNTIME_DIR");
  const std::string path = directory + "/bus";
  return !directory.empty() && access(path.c_str(), F_OK) == 0 ? "unix:path=" + path : "";
}

std::string systemAddress() {
  std::string named = variable("DBUS_SYSTEM_BUS_ADDRESS");
  if (named.empty()) named = "unix:path=/run/dbus/system_bus_socket";
  return named;
}

}  // namespace

std::string busAddress() {
  const std::string chosen = variable("JXPLATFORM_BUS");
  if (chosen == "system") return systemAddress();
  const std::string session = chosen.empty() || chosen == "session" ? sessionAddress() : chosen;
  return session.empty() && chosen.empty() ? systemAddress() : session;
}

}  // namespace zoripc
