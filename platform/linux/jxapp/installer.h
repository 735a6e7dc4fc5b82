// One run of the installer.
#pragma once

#include <jxapp.h>

#include <string>

#include "platform/linux/jxapp/application_store.h"

namespace jxinstall {

struct InstallOptions {
  std::string root;  // the platform root
  int lockTimeoutMs = 120 * 1000;
  Replacement replacement = Replacement::kExchange;
};

// Does what jxapp::jxInstall promises, below options.root. An installation of another thread or process on the same
// root is waited for, at most lockTimeoutMs, after which one "Error:" line says so and nothing is installed. Returns 0
// when no "Error:" line was reported, else -1. Throws nothing but for want of memory.
[[nodiscard]] int installAll(const InstallOptions& options, jxapp::InstallLog log, void* data);

}  // namespace jxinstall
