// What can be set in the cloud proxy: the environments that there are, and the choice among them.
#pragma once

#include <string>
#include <vector>

namespace cloudproxyd {

// The certificate of the extended authentication; every other one belongs to the basic one.
constexpr const char* kAuthEx = "auth-ex";

struct Environment {
  std::string name;
  std::vector<std::string> certificates;
};
using Environments = std::vector<Environment>;

// Log levels go from 0 to this.
constexpr int kMaxLogLevel = 2147483647;

// What is kept across restarts.
struct Settings {
  int logLevel = 3;
  std::string environment;
  bool authEx = false;
};

// The environments of a terminal of the type `deviceType`: a production device has its certificate for the production
// environment, another one for the others.
[[nodiscard]] Environments usualEnvironments(const std::string& deviceType);

// The environment `name`, or null.
[[nodiscard]] const Environment* findEnvironment(const Environments& environments, const std::string& name);

// True when any environment has the certificate of the extended authentication.
[[nodiscard]] bool supportsAuthEx(const Environments& environments);

// Throws Failure when `settings` are not possible with these environments. Extended authentication needs its
// certificate; without it the environment needs another certificate, or none at all.
void checkSettings(const Settings& settings, const Environments& environments);

// The settings of a proxy that has not been set up: the first environment, with extended authentication where it has
// no other certificate.
[[nodiscard]] Settings initialSettings(const Environments& environments);

}  // namespace cloudproxyd
