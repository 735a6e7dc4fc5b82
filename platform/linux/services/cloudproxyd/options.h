// The command line of cloudproxyd.
#pragma once

#include <optional>
#include <string>

#include "platform/linux/services/cloudproxyd/gateway.h"
#include "platform/linux/services/cloudproxyd/service.h"

namespace cloudproxyd {

struct Options {
  ServiceOptions service;
  Gateway gateway;
  std::string stateFile;  // empty: cloudproxy.json in the platform's root
};

// Fills `options` from the command line. Returns the exit status when the process is to end now, after --help,
// --version (0) or a wrong command line (2), having printed what there is to say.
[[nodiscard]] std::optional<int> parseOptions(int argc, const char* const* argv, Options& options);

// Reads "NAME" or "NAME:CERT,CERT"; none when it is neither.
[[nodiscard]] std::optional<Environment> parseEnvironment(const std::string& text);

}  // namespace cloudproxyd
