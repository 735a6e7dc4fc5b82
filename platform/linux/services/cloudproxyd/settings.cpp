#include "platform/linux/services/cloudproxyd/settings.h"

#include <algorithm>

#include "platform/linux/support/failure.h"

namespace cloudproxyd {

namespace {

using jxplatform::Failure;

bool hasAuthEx(const Environment& environment) {
  const auto& names = environment.certificates;
  return std::find(names.begin(), names.end(), kAuthEx) != names.end();
}

bool needsAuthEx(const Environment& environment) {
  const auto isAuthEx = [](const std::string& name) { return name == kAuthEx; };
  return hasAuthEx(environment) &&
         std::all_of(environment.certificates.begin(), environment.certificates.end(), isAuthEx);
}

}  // namespace

Environments usualEnvironments(const std::string& deviceType) {
  if (deviceType == "prod") return {{"prod", {kAuthEx}}, {"test", {"jx-basic"}}};
  return {{"prod", {}}, {"test", {kAuthEx, "jx-basic"}}};
}

const Environment* findEnvironment(const Environments& environments, const std::string& name) {
  const auto found = std::find_if(environments.begin(), environments.end(),
                                  [&](const Environment& environment) { return environment.name == name; });
  return found == environments.end() ? nullptr : &*found;
}

bool supportsAuthEx(const Environments& environments) {
  return std::any_of(environments.begin(), environments.end(), hasAuthEx);
}

void checkSettings(const Settings& settings, const Environments& environments) {
  const Environment* const environment = findEnvironment(environments, settings.environment);
  if (environment == nullptr) throw Failure("unknown environment");
  if (settings.authEx && !hasAuthEx(*environment)) throw Failure("the environment has no certificate auth-ex");
  if (!settings.authEx && needsAuthEx(*environment)) throw Failure("the environment has no certificate but auth-ex");
}

Settings initialSettings(const Environments& environments) {
  Settings settings;
  if (environments.empty()) return settings;
  settings.environment = environments.front().name;
  settings.authEx = needsAuthEx(environments.front());
  return settings;
}

}  // namespace cloudproxyd
