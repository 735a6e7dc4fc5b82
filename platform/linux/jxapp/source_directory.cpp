#include "platform/linux/jxapp/source_directory.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <tuple>

#include "base/directory.h"
#include "base/file_io.h"
#include "base/text.h"
#include "platform/linux/jxapp/failure.h"
#include "platform/linux/jxapp/package.h"

namespace jxinstall {
namespace {

// The digits of N; empty when the name is no upload-N.zip.
std::string numberOf(const std::string& name) {
  const std::string prefix = "upload-";
  const std::string suffix = ".zip";
  if (name.size() <= prefix.size() + suffix.size() || !base::beginsWith(name, prefix) ||
      !base::endsWith(name, suffix)) {
    return "";
  }
  std::string digits = name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
  const bool isNumber = std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
  return isNumber ? digits : "";
}

// Compares numbers of any length.
bool comesBefore(const std::string& one, const std::string& other) {
  const auto order = [](const std::string& name) {
    const std::string digits = numberOf(name);
    const std::string value = digits.substr(std::min(digits.find_first_not_of('0'), digits.size()));
    return std::make_tuple(value.size(), value, name);
  };
  return order(one) < order(other);
}

bool sameTime(const timespec& one, const timespec& other) {
  return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

}  // namespace

SourceArchive::SourceArchive(int directory, std::string name)
    : name_(std::move(name)), file_(openAt(directory, name_, O_RDONLY | O_NONBLOCK)) {
  if (!file_ && errno == ELOOP) throw Failure("is a link, not a file");
  if (!file_ || fstat(file_.get(), &status_) != 0) throw Failure("cannot be opened: " + base::errorText(errno));
  if (!S_ISREG(status_.st_mode)) throw Failure("is not a file");
}

std::string SourceArchive::digest() const { return digestOf(fd(), size()); }

bool SourceArchive::isTakenOver(int directory) const {
  struct stat now {};
  if (fstatat(directory, name_.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0) return false;
  return now.st_ino != status_.st_ino || now.st_dev != status_.st_dev || now.st_size != status_.st_size ||
         !sameTime(now.st_mtim, status_.st_mtim);
}

base::Descriptor openSourceDirectory(const std::string& root) {
  return base::Descriptor(open((root + "/source").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

bool listArchives(int directory, std::vector<std::string>& names) {
  if (!base::listDirectory(directory, names)) return false;
  const auto isOther = [](const std::string& name) { return numberOf(name).empty(); };
  names.erase(std::remove_if(names.begin(), names.end(), isOther), names.end());
  std::sort(names.begin(), names.end(), comesBefore);
  return true;
}

}  // namespace jxinstall
