#include "platform/linux/jxapp/application_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "base/directory.h"
#include "base/file_io.h"
#include "base/ignore.h"
#include "base/regular_file.h"
#include "base/text.h"
#include "platform/linux/jxapp/failure.h"
#include "platform/linux/jxapp/manifest.h"

namespace jxinstall {
namespace {

constexpr mode_t kDirectoryMode = 0755;
constexpr const char* kNewPrefix = ".new-";
constexpr const char* kOldPrefix = ".old-";
constexpr unsigned kRenameExchange = 2;

bool exists(int directory, const std::string& name) {
  struct stat status {};
  return fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

bool isLeftover(const std::string& name) {
  return base::beginsWith(name, kOldPrefix) || base::beginsWith(name, kNewPrefix);
}

bool isDirectory(int directory, const std::string& name) {
  struct stat status {};
  return fstatat(directory, name.c_str(), &status, 0) == 0 && S_ISDIR(status.st_mode);
}

bool rename(int directory, const std::string& from, const std::string& to) {
  return renameat(directory, from.c_str(), directory, to.c_str()) == 0;
}

// By its number: a C library may lack the function where the kernel has the call.
bool exchange(int directory, const std::string& one, const std::string& other) {
  return syscall(SYS_renameat2, directory, one.c_str(), directory, other.c_str(), kRenameExchange) == 0;
}

bool isUnsupported(int error) { return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP; }

[[noreturn]] void failWith(const std::string& what) { throw Failure(what + ": " + base::errorText(errno)); }

}  // namespace

ApplicationStore::ApplicationStore(const std::string& root, Replacement replacement) : replacement_(replacement) {
  const std::string path = root + "/apps";
  mkdir(path.c_str(), kDirectoryMode);
  apps_ = base::Descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!apps_) failWith("the folder of the applications cannot be opened");
}

void ApplicationStore::sweep() const {
  std::vector<std::string> names;
  // What cannot be listed or removed now is swept the next time.
  base::ignore(base::listDirectory(directory(), names));
  const auto whole =
      std::remove_if(names.begin(), names.end(), [](const std::string& name) { return !isLeftover(name); });
  names.erase(whole, names.end());
  // A rename that a kill followed may not be on the disk yet: were its leftovers removed before, a power cut could
  // leave neither of the two.
  if (names.empty() || !base::syncFile(directory())) return;
  for (const std::string& name : names) {
    if (!base::beginsWith(name, kOldPrefix) || !putBack(name)) base::ignore(removeTree(directory(), name));
  }
}

// Whether the old application `name` is all that there is: it is then put in its place, or stays for the next sweep.
bool ApplicationStore::putBack(const std::string& name) const {
  const std::string place = name.substr(std::string(kOldPrefix).size());
  if (exists(directory(), place)) return false;
  if (rename(directory(), name, place)) base::ignore(base::syncFile(directory()));
  return true;
}

std::vector<Application> ApplicationStore::list() const {
  std::vector<std::string> names;
  if (!base::listDirectory(directory(), names)) failWith("the folder of the applications cannot be read");
  std::vector<Application> applications;
  for (const std::string& name : names) {
    if (isApplicationName(name) && isDirectory(directory(), name)) applications.push_back({name, versionOf(name)});
  }
  return applications;
}

std::optional<std::string> ApplicationStore::versionOf(const std::string& name) const {
  std::string text;
  const base::Descriptor file = openAt(directory(), name + '/' + kManifestName, O_RDONLY | O_NONBLOCK);
  if (!file || !base::readRegularFile(file.get(), kMaxManifestBytes, text)) return std::nullopt;
  try {
    const Manifest manifest = parseManifest(text);
    return manifest.remove ? std::nullopt : std::optional(manifest.version);
  } catch (const Failure&) {
    return std::nullopt;
  }
}

base::Descriptor ApplicationStore::stage(const std::string& name) const {
  discard(name);
  const std::string staged = kNewPrefix + name;
  if (mkdirat(directory(), staged.c_str(), kDirectoryMode) != 0) failWith("the application's folder cannot be created");
  base::Descriptor made = openAt(directory(), staged, O_RDONLY | O_DIRECTORY);
  if (!made || fchmod(made.get(), kDirectoryMode) != 0) failWith("the application's folder cannot be opened");
  return made;
}

void ApplicationStore::commit(const std::string& name) const {
  swapIn(name);
  // The application is in its place. Where that is not sure to survive a power cut, the old one stays for the next
  // sweep.
  if (!base::syncFile(directory())) return;
  discard(name);
  // The next sweep removes what is left.
  base::ignore(removeTree(directory(), kOldPrefix + name));
}

void ApplicationStore::swapIn(const std::string& name) const {
  const std::string staged = kNewPrefix + name;
  if (!exists(directory(), name)) {
    if (!rename(directory(), staged, name)) failWith("the application cannot be put in its place");
    return;
  }
  if (replacement_ == Replacement::kExchange) {
    if (exchange(directory(), staged, name)) return;
    if (!isUnsupported(errno)) failWith("the application cannot be put in its place");
  }
  swapByTwoRenames(name);
}

void ApplicationStore::swapByTwoRenames(const std::string& name) const {
  const std::string old = kOldPrefix + name;
  if (!rename(directory(), name, old)) failWith("the old application cannot be moved aside");
  if (base::syncFile(directory()) && rename(directory(), kNewPrefix + name, name)) return;
  const int reason = errno;
  rename(directory(), old, name);
  errno = reason;
  failWith("the application cannot be put in its place");
}

bool ApplicationStore::remove(const std::string& name) const {
  const std::string aside = kNewPrefix + name;
  if (!exists(directory(), name)) {
    if (errno != ENOENT) failWith("the application cannot be looked at");
    return false;
  }
  discard(name);
  // What is left of an older one would be taken for the application by the next sweep.
  const std::string older = kOldPrefix + name;
  if (exists(directory(), older) && !removeTree(directory(), older))
    failWith("what is left of an older version cannot be removed");
  if (!rename(directory(), name, aside)) failWith("the application cannot be taken from its place");
  if (!base::syncFile(directory())) {
    const int reason = errno;
    rename(directory(), aside, name);
    errno = reason;
    failWith("the application cannot be taken from its place");
  }
  discard(name);
  return true;
}

void ApplicationStore::discard(const std::string& name) const {
  // The next sweep removes what is left.
  base::ignore(removeTree(directory(), kNewPrefix + name));
}

}  // namespace jxinstall
