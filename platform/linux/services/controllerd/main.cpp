// The application controller of a Linux terminal: owns the id "_mac" and prints what it is told.
#include <zoripc.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "platform/linux/services/controllerd/commands.h"
#include "platform/linux/support/root.h"
#include "platform/linux/support/service_process.h"

namespace {

constexpr int kUsageError = 2;

constexpr const char* kHelp =
    "Usage: controllerd [--help | --version]\n"
    "\n"
    "The application controller: takes the notifications for the application id _mac and\n"
    "prints a line or more for each to standard output.\n"
    "\n"
    "  libmac_scan_manifests  lists the installed applications, NAME VERSION a line\n"
    "  libmac_show_desktop    says that the desktop is shown\n"
    "\n"
    "It runs until SIGTERM or SIGINT. Environment: JXPLATFORM_ROOT (/var/lib/jxplatform),\n"
    "JXPLATFORM_BUS (session, system or a D-Bus address). While there is no bus it goes on\n"
    "looking for one.\n"
    "\n"
    "Exit status: 0 after a signal, 1 when it cannot start, 2 for a wrong command line.\n";

// On the library's thread.
void onTrigger(void* /*data*/, const std::string& sender, const std::string& /*receiver*/, const std::string& /*name*/,
               const zoripc::JSObject& message, unsigned /*flags*/) {
  try {
    for (const std::string& line : controllerd::answer(jxplatform::root(), sender, message)) std::puts(line.c_str());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "controllerd: a notification has been lost: %s\n", error.what());
  }
}

int run() {
  const jxplatform::ServiceProcess process;
  jxplatform::root();
  if (zoripc::ipcRegisterNotificationCB("_mac_control_trigger", onTrigger, nullptr, 0, "") != 0) return 1;
  zoripc::ipcSetAppID("_mac");
  return process.waitForEnd();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
    std::fputs(kHelp, stdout);
    return 0;
  }
  if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
    std::puts("controllerd " JX_VERSION);
    return 0;
  }
  if (argc > 1) {
    std::fprintf(stderr, "controllerd: unknown argument %s\nUsage: controllerd [--help | --version]\n", argv[1]);
    return kUsageError;
  }
  try {
    return run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "controllerd: %s\n", error.what());
    return 1;
  }
}
