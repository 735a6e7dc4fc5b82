#include "tools/jxpush/serial/port_owner.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <vector>

namespace jxpush {

namespace {

std::vector<std::string> entriesOf(const std::string& folder) {
  std::vector<std::string> names;
  DIR* const handle = opendir(folder.c_str());
  if (handle == nullptr) return names;
  while (const dirent* const entry = readdir(handle)) names.emplace_back(entry->d_name);
  closedir(handle);
  return names;
}

bool hasOpen(const std::string& process, dev_t device) {
  const std::string folder = "/proc/" + process + "/fd/";
  for (const std::string& name : entriesOf(folder)) {
    struct stat status {};
    if (stat((folder + name).c_str(), &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == device) {
      return true;
    }
  }
  return false;
}

std::string nameOf(const std::string& process) {
  std::ifstream file("/proc/" + process + "/comm");
  std::string name;
  std::getline(file, name);
  return name.empty() ? "another program" : name;
}

}  // namespace

std::string portHolder(const std::string& device) {
  struct stat status {};
  if (stat(device.c_str(), &status) != 0) return "";
  const std::string self = std::to_string(getpid());
  for (const std::string& process : entriesOf("/proc")) {
    if (std::isdigit(static_cast<unsigned char>(process[0])) == 0 || process == self) continue;
    if (hasOpen(process, status.st_rdev)) return " by " + nameOf(process) + " (process " + process + ")";
  }
  return "";
}

std::string permissionAdvice(const std::string& device) {
  // The library has one place for what it finds of users and groups; several lines may be refused at once.
  static std::mutex lookUp;
  const std::lock_guard<std::mutex> lock(lookUp);
  struct stat status {};
  if (stat(device.c_str(), &status) != 0) return "";
  const passwd* const user = getpwuid(geteuid());
  const std::string who = user == nullptr ? "USER" : user->pw_name;
  constexpr mode_t kGroupMay = S_IRGRP | S_IWGRP;
  const group* const owner = getgrgid(status.st_gid);
  if ((status.st_mode & kGroupMay) == kGroupMay && owner != nullptr) {
    const std::string name = owner->gr_name;
    return "; join the group " + name + " (sudo usermod -a -G " + name + " " + who + ") and log in again";
  }
  const passwd* const holder = getpwuid(status.st_uid);
  return holder == nullptr ? "" : "; it belongs to the user " + std::string(holder->pw_name);
}

}  // namespace jxpush
