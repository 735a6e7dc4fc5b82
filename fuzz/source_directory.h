// A source directory for fuzzers, and an installer that installs nothing.
#pragma once

#include <jxapp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/input.h"

// Takes the numbered archives out of the source directory, in which nothing else may lie, and returns what was in them.
inline std::vector<std::string> takeStoredFiles() {
  const std::string directory = jxapp::jxInstallSourceDir();
  std::vector<std::string> contents;
  for (;;) {
    const std::string path = directory + "/upload-" + std::to_string(contents.size()) + ".zip";
    std::ifstream file(path, std::ios::binary);
    if (!file) break;
    contents.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    std::remove(path.c_str());
  }
  require(rmdir(directory.c_str()) == 0 && mkdir(directory.c_str(), 0700) == 0);
  return contents;
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
