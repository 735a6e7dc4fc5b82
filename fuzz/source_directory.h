// A source directory for fuzzers, and an installer that installs nothing.
#pragma once

#include <jxapp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>

// What lay in the source directory.
struct StoredFiles {
  int count;
  std::size_t bytes;
};

// Removes the numbered archives.
inline StoredFiles emptySourceDirectory() {
  StoredFiles stored{0, 0};
  for (;;) {
    const std::string path =
        std::string(jxapp::jxInstallSourceDir()) + "/upload-" + std::to_string(stored.count) + ".zip";
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return stored;
    stored.bytes += static_cast<std::size_t>(status.st_size);
    ++stored.count;
    std::remove(path.c_str());
  }
}

namespace jxapp {

inline const char* sourceDirectory() {
  static char name[] = "/dev/shm/jxfuzz-XXXXXX";
  static const char* const made = mkdtemp(name);
  static const int cleanUp = std::atexit([] { rmdir(name); });
  static_cast<void>(cleanUp);
  return made;
}

int jxInstall(InstallLog log, void* data) {
  log(data, "%s\n", "List of installed applications:");
  return 0;
}

const char* jxInstallSourceDir() { return sourceDirectory(); }

bool jxInstallCreateSourceDir() { return true; }

bool jxGetCertificateArchive(std::string& archive) {
  archive = "archive";
  return true;
}

}  // namespace jxapp
