// The program: prepares the process, reads the command line, and puts the subsystems together.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "base/ignore.h"
#include "cloudproxy/cloud_proxy_menu.h"
#include "cloudproxy/log_level.h"
#include "cloudproxy/probe.h"
#include "serial/download_session.h"
#include "shell/controller.h"
#include "shell/information.h"
#include "shell/install.h"
#include "shell/menu.h"
#include "shell/source_directory.h"
#include "shell/startup.h"
#include "upload/http_download.h"
#include "upload/server_only.h"

namespace {

void runMenus() {
  Activities activities;
  activities.information = runInformationPage;
  activities.logLevel = runLogLevelPage;
  activities.cloudProxy = runCloudProxyMenu;
  activities.httpDownload = runHttpDownload;
  activities.serialDownload = [](int port) { base::ignore(download_ddl(port)); };
  runMainMenu(proxyProbe(), activities);
}

void runTerminal() {
  // A serial line may become the controlling terminal; its hang-up is the download's to report, not the program's end.
  std::signal(SIGHUP, SIG_IGN);
  try {
    runMenus();
  } catch (const std::exception&) {
    notifyController("libmac_show_desktop");  // whatever ended the menus, the desktop has to come back
    throw;
  }
}

int runMode(int argc, char** argv) {
  prepareProcess();
  limitThreadStacks();
  if (argc < 2) {
    removeLeftArchives();
    runTerminal();
    return 0;
  }
  if (std::strcmp(argv[1], "--http") == 0) {
    removeLeftArchives();
    runServerOnly();
    return 0;
  }
  std::fprintf(stderr, "Usage: %s [--http]\n", argv[0]);
  return 1;
}

// Returns the exit status.
int run(int argc, char** argv) {
  try {
    return runMode(argc, argv);
  } catch (const std::exception&) {
    return 1;
  }
}

}  // namespace

int main(int argc, char** argv) {
  const int status = run(argc, argv);
  // An upload may be installing still: it is let finish, but not for ever.
  if (!finishInstallations()) std::_Exit(status);
  return status;
}
