#include "tests/support/fake_installer.h"

#include <jxapp.h>
#include <sys/stat.h>

FakeInstaller& FakeInstaller::instance() {
  static FakeInstaller installer;
  return installer;
}

void FakeInstaller::reset() {
  sourceDir.clear();
  messages.clear();
  archive.clear();
  archiveComplete = true;
  onInstall = nullptr;
  result = 0;
  installations = 0;
  directoriesMade = 0;
}

namespace jxapp {

int jxInstall(InstallLog log, void* data) {
  FakeInstaller& installer = FakeInstaller::instance();
  ++installer.installations;
  if (installer.onInstall) installer.onInstall();
  for (const std::string& message : installer.messages) log(data, "%s", message.c_str());
  return installer.result;
}

const char* jxInstallSourceDir() { return FakeInstaller::instance().sourceDir.c_str(); }

bool jxInstallCreateSourceDir() {
  FakeInstaller& installer = FakeInstaller::instance();
  ++installer.directoriesMade;
  return mkdir(installer.sourceDir.c_str(), 0755) == 0;
}

bool jxGetCertificateArchive(std::string& archive) {
  archive += FakeInstaller::instance().archive;
  return FakeInstaller::instance().archiveComplete;
}

}  // namespace jxapp
