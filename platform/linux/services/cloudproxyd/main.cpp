// The cloud proxy of a Linux terminal: owns the id "1" and answers the requests that are notified to it.
#include <malloc.h>
#include <zoripc.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <utility>

#include "base/ignore.h"
#include "platform/linux/services/cloudproxyd/gateway_check.h"
#include "platform/linux/services/cloudproxyd/options.h"
#include "platform/linux/services/cloudproxyd/service.h"
#include "platform/linux/services/cloudproxyd/state_file.h"
#include "platform/linux/support/failure.h"
#include "platform/linux/support/root.h"
#include "platform/linux/support/service_process.h"

namespace {

using namespace cloudproxyd;

constexpr int kEndMs = 1000;

// On the library's thread.
void onRequest(void* data, const std::string& sender, const std::string& /*receiver*/, const std::string& /*name*/,
               const zoripc::JSObject& message, unsigned /*flags*/) {
  try {
    static_cast<Service*>(data)->take(message, [sender](const zoripc::JSObject& response) {
      base::ignore(zoripc::ipcNotify(sender.c_str(), "CloudProxyConfResponse", response, 0, ""));
    });
  } catch (const std::exception& error) {
    std::fprintf(stderr, "cloudproxyd: a request has been lost: %s\n", error.what());
  }
}

// What was kept, or where that is not possible any more, the beginning.
Settings readSettings(const std::string& path, const Environments& environments) {
  const Settings initial = initialSettings(environments);
  Settings settings = initial;
  try {
    settings = loadSettings(path, initial);
    checkSettings(settings, environments);
    return settings;
  } catch (const jxplatform::Failure& failure) {
    std::fprintf(stderr, "cloudproxyd: %s: %s; starting with environment %s\n", path.c_str(), failure.what(),
                 initial.environment.c_str());
  }
  Settings usable = initial;
  usable.logLevel = settings.logLevel;
  return usable;
}

// The C library would learn to keep large blocks for the next one; what a notification took is to be given back.
void giveLargeBlocksBack() {
#ifdef M_MMAP_THRESHOLD
  constexpr int kLargeBytes = 128 * 1024;
  mallopt(M_MMAP_THRESHOLD, kLargeBytes);
#endif
}

int run(Options options) {
  const jxplatform::ServiceProcess process;
  giveLargeBlocksBack();
  const std::string path = options.stateFile.empty() ? jxplatform::root() + "/cloudproxy.json" : options.stateFile;
  const Settings settings = readSettings(path, options.service.environments);
  // Neither is ever destroyed: the library's thread may be in them while the process ends.
  auto* const checker = new GatewayChecker(options.gateway);
  auto* const service = new Service(
      std::move(options.service), settings,
      [checker](GatewayChecker::Done done) { return checker->start(std::move(done)); },
      [path](const Settings& changed) { saveSettings(path, changed); },
      [](const std::string& line) { std::puts(line.c_str()); });
  if (zoripc::ipcRegisterNotificationCB("CloudProxyConf", onRequest, service, 0, "") != 0) return 1;
  zoripc::ipcSetAppID("1");
  const int status = process.waitForEnd();
  // A thread that still reports must not meet what the process destroys at its end.
  if (!checker->finish(kEndMs)) std::_Exit(status);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Options options;
    if (const auto status = parseOptions(argc, argv, options)) return *status;
    return run(std::move(options));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "cloudproxyd: %s\n", error.what());
    return 1;
  }
}
