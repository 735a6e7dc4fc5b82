// The program: prepares the process, reads the command line, and puts the subsystems together.
#include <cstdio>
#include <cstring>
#include <exception>

#include "serial/download_session.h"
#include "shell/information.h"
#include "shell/menu.h"
#include "shell/pages.h"
#include "shell/startup.h"
#include "upload/http_download.h"
#include "upload/server_only.h"

namespace {

void showMissing() {
  PageVars vars;
  vars["text"] = "<span style='color:#f00'><b>Error:</b></span><br>Not there yet.";
  showPage(vars, "result.html");
}

void runTerminal() {
  Activities activities;
  activities.information = runInformationPage;
  activities.logLevel = showMissing;
  activities.cloudProxy = showMissing;
  activities.httpDownload = runHttpDownload;
  activities.serialDownload = [](int port) { static_cast<void>(download_ddl(port)); };
  runMainMenu({}, activities);
}

int run(int argc, char** argv) {
  prepareProcess();
  if (argc < 2) {
    runTerminal();
    return 0;
  }
  if (std::strcmp(argv[1], "--http") == 0) {
    runServerOnly();
    return 0;
  }
  std::fprintf(stderr, "Usage: %s [--http]\n", argv[0]);
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception&) {
    return 1;
  }
}
