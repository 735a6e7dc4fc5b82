// A scripted stand-in for the installer library.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

class FakeInstaller {
 public:
  static FakeInstaller& instance();

  // Back to: no messages, an empty certificate archive, no directory.
  void reset();

  std::string sourceDir;              // also what is created when the directory is asked for
  std::vector<std::string> messages;  // what each installation logs, one call each
  std::string archive;                // the certificates
  bool archiveComplete = true;
  std::function<void()> onInstall;  // runs within each installation, before its messages
  int result = 0;

  std::atomic<int> installations{0};
  std::atomic<int> directoriesMade{0};
};
