#include "base/directory.h"

#include <dirent.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include "base/descriptor.h"
#include "base/ignore.h"

namespace base {
namespace {

constexpr int kFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

struct CloseStream {
  void operator()(DIR* stream) const { closedir(stream); }
};

bool listOpened(Descriptor opened, std::vector<std::string>& names) {
  if (!opened) return false;
  const std::unique_ptr<DIR, CloseStream> stream(fdopendir(opened.get()));
  if (!stream) return false;
  ignore(opened.release());  // the stream has it
  errno = 0;
  while (const dirent* const entry = readdir(stream.get())) {
    std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(std::move(name));
    errno = 0;  // which tells the end from a failure, and which anything may set meanwhile
  }
  const int error = errno;
  std::sort(names.begin(), names.end());
  errno = error;
  return error == 0;
}

}  // namespace

// Through a descriptor of its own, since closing a stream closes the one it was made of.
bool listDirectory(int directory, std::vector<std::string>& names) {
  return listOpened(Descriptor(openat(directory, ".", kFolder)), names);
}

bool listDirectory(const std::string& path, std::vector<std::string>& names) {
  return listOpened(Descriptor(open(path.c_str(), kFolder)), names);
}

}  // namespace base
