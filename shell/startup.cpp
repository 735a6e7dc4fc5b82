#include "shell/startup.h"

#include <jsproc.h>
#include <pthread.h>
#include <sys/stat.h>
#include <zorhtml.h>

#include <cstddef>
#include <cstdlib>

#include "base/ignore.h"

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
  base::ignore(chmod(directory, (status.st_mode & kPermissionBits) | kOthersReadAndSearch));
}

}  // namespace

void prepareProcess() {
  umask(kFileModeMask);
  for (const char* directory : kConfigurationDirectories) openToOthers(directory);
  zorhtml::htmlSetScriptProcessor("js", js::jsProcessorExt, nullptr);
  setenv("GUIPRT_APPNAME", "jxdownloader", 1);
}

// The call is the C library's own: the attributes that a connection's thread is started with are to be none but its
// detached state.
void limitThreadStacks() {
  constexpr std::size_t kStackSize = std::size_t{1} << 20;
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return;
  if (pthread_attr_setstacksize(&attributes, kStackSize) == 0) pthread_setattr_default_np(&attributes);
  pthread_attr_destroy(&attributes);
}
