#include "shell/startup.h"

#include <jsproc.h>
#include <sys/stat.h>
#include <zorhtml.h>

#include <cstdlib>

namespace {

constexpr mode_t kFileModeMask = 022;
constexpr mode_t kPermissionBits = 07777;
constexpr mode_t kOthersReadAndSearch = 005;

constexpr const char* kConfigurationDirectories[] = {
    "/mnt/flash/etc/config/jxapp",
    "/mnt/flash/etc/config/jxapp/jx",
    "/mnt/flash/etc/config/jxapp/mp",
};

void openToOthers(const char* directory) {
  struct stat status {};
  if (stat(directory, &status) != 0) return;  // one that is missing is not made here
  if ((status.st_mode & kOthersReadAndSearch) == kOthersReadAndSearch) return;
  static_cast<void>(chmod(directory, (status.st_mode & kPermissionBits) | kOthersReadAndSearch));
}

}  // namespace

void prepareProcess() {
  umask(kFileModeMask);
  for (const char* directory : kConfigurationDirectories) openToOthers(directory);
  zorhtml::htmlSetScriptProcessor("js", js::jsProcessorExt, nullptr);
  setenv("GUIPRT_APPNAME", "jxdownloader", 1);
}
