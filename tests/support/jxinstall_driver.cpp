// Runs the installer once on $JXPLATFORM_ROOT and prints its messages, for the tests of real processes.
//
// Usage: jxinstall_driver [--two-renames] [--stop] [--lock-timeout MS]   (--stop: raises SIGSTOP before it begins)
//        jxinstall_driver --certificates                                (writes the certificate archive)
//
// Ends with 0 when the installer reported no error, 1 when it did, 2 for a wrong command line.
#include <jxapp.h>

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/linux/jxapp/installer.h"
#include "platform/linux/support/root.h"

namespace {

void printMessage(void* data, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::vfprintf(static_cast<std::FILE*>(data), format, arguments);
  va_end(arguments);
  std::fflush(static_cast<std::FILE*>(data));
}

int writeCertificates() {
  std::string archive;
  const bool complete = jxapp::jxGetCertificateArchive(archive);
  std::fwrite(archive.data(), 1, archive.size(), stdout);
  return complete ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  jxinstall::InstallOptions options;
  options.root = jxplatform::root();
  bool stop = false;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--certificates") return writeCertificates();
    if (argument == "--two-renames") {
      options.replacement = jxinstall::Replacement::kTwoRenames;
    } else if (argument == "--stop") {
      stop = true;
    } else if (argument == "--lock-timeout" && i + 1 < argc) {
      options.lockTimeoutMs = std::atoi(argv[++i]);
    } else {
      return 2;
    }
  }
  if (stop) std::raise(SIGSTOP);
  return jxinstall::installAll(options, printMessage, stdout) == 0 ? 0 : 1;
}
