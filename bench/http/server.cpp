// The upload server on a port of its own, with an installer that installs nothing: it removes what was received.
// Usage: bench_server PORT DIRECTORY
#include <jxapp.h>
#include <unistd.h>
#include <zoripc.h>

#include <cstdlib>
#include <iostream>
#include <string>

#include "http/listener.h"
#include "shell/startup.h"
#include "upload/jx_download_server.h"

namespace {

std::string sourceDirectory;

}  // namespace

namespace jxapp {

int jxInstall(InstallLog /*log*/, void* /*data*/) { return unlink((sourceDirectory + "/upload-0.zip").c_str()); }

const char* jxInstallSourceDir() { return sourceDirectory.c_str(); }

bool jxInstallCreateSourceDir() { return true; }

bool jxGetCertificateArchive(std::string& archive) {
  archive.clear();
  return true;
}

}  // namespace jxapp

namespace zoripc {

// The controller hears of installations; here are none.
int ipcNotify(const char* /*receiver*/, const char* /*name*/, const JSObject& /*message*/, unsigned /*flags*/,
              const char* /*sender*/) {
  return 0;
}

}  // namespace zoripc

int main(int argc, char** argv) {
  const int port = argc == 3 ? static_cast<int>(std::strtol(argv[1], nullptr, 10)) : 0;
  if (port <= 0) {
    std::cerr << "Usage: bench_server PORT DIRECTORY\n";
    return 2;
  }
  sourceDirectory = argv[2];
  limitThreadStacks();
  zorhtml::ServerSettings settings(port);
  const JXDownloadServer prototype;
  return zorhtml::serve(settings, prototype) ? 0 : 1;
}
