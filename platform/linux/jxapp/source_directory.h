// The archives that wait to be installed.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/descriptor.h"
#include "platform/linux/jxapp/file.h"

namespace jxinstall {

// An archive upload-N.zip of the source directory, opened.
class SourceArchive {
 public:
  // Throws Failure when `name` cannot be opened or is no regular file.
  SourceArchive(int directory, std::string name);

  const std::string& name() const { return name_; }
  int fd() const { return file_.get(); }
  std::uint64_t size() const { return static_cast<std::uint64_t>(status_.st_size); }

  // The SHA-256 of its bytes in hex digits. Throws Failure when they cannot be read, or are fewer than size() says.
  [[nodiscard]] std::string digest() const;

  // True when the file under the name is no longer the one that was opened, or has been written to since: another
  // upload has begun to use the name, and installs what it brings.
  [[nodiscard]] bool isTakenOver(int directory) const;

 private:
  std::string name_;
  base::Descriptor file_;
  struct stat status_ {};
};

// Opens `root`/source. When it fails errno tells why; ENOENT means that nothing waits.
[[nodiscard]] base::Descriptor openSourceDirectory(const std::string& root);

// The names `upload-N.zip` in the directory in the order of the numbers N, however long; false with errno set when it
// cannot be read.
[[nodiscard]] bool listArchives(int directory, std::vector<std::string>& names);

}  // namespace jxinstall
