#include <jxapp.h>
#include <sys/stat.h>

#include <exception>

#include "platform/linux/jxapp/certificates.h"
#include "platform/linux/jxapp/installer.h"
#include "platform/linux/support/root.h"

namespace jxapp {
namespace {

// Never destroyed: an upload may go on while the program ends.
const std::string& sourceDirectory() {
  static const auto* const path = new std::string(jxplatform::root() + "/source");
  return *path;
}

}  // namespace

int jxInstall(InstallLog log, void* data) try {
  jxinstall::InstallOptions options;
  options.root = jxplatform::root();
  return jxinstall::installAll(options, log, data);
} catch (const std::exception& failure) {
  log(data, "Error: the installer failed: %s\n", failure.what());
  return -1;
}

const char* jxInstallSourceDir() try { return sourceDirectory().c_str(); } catch (const std::exception&) {
  return "/dev/null";
}

bool jxInstallCreateSourceDir() try {
  constexpr mode_t kMode = 0755;
  mkdir(sourceDirectory().c_str(), kMode);
  struct stat status {};
  return stat(sourceDirectory().c_str(), &status) == 0 && S_ISDIR(status.st_mode);
} catch (const std::exception&) {
  return false;
}

bool jxGetCertificateArchive(std::string& archive) try {
  return jxinstall::archiveCertificates(jxplatform::root(), archive);
} catch (const std::exception&) {
  return false;
}

}  // namespace jxapp
