// A file that appears under its name only when it is whole.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "base/descriptor.h"

namespace base {

// Whether a change must survive a power failure, or only the end of the program.
enum class Flush { kNo, kYes };

// A draft beside `path`, which takes the place of what has that name when it is committed. A reader sees the old
// content or the new, at any moment; with Flush::kYes after a power failure too.
class AtomicFile {
 public:
  // Opens the draft, `path` + `suffix`, a new file: what has that name, such as the draft of a killed writer, a link or
  // a FIFO, is removed and not written to; a folder stays and is refused (EISDIR). `mode` is that of the file, less the
  // process's mask. Where it cannot be opened the object is false and errno says why. Writers that may run at the same
  // time take different suffixes.
  explicit AtomicFile(std::string path, const std::string& suffix = ".new", mode_t mode = 0666);

  // Removes the draft unless it was committed; keeps errno.
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  explicit operator bool() const { return hasDraft_; }
  [[nodiscard]] int fd() const { return draft_.get(); }

  // Gives the draft its name. With Flush::kYes its bytes are on the disk before; the folder's change is not, which
  // syncFolderOf() sees to. False with errno, and the old content stays. Once only. Blocks with Flush::kYes until the
  // disk has it.
  [[nodiscard]] bool commit(Flush flush);

 private:
  std::string path_;
  std::string draftPath_;
  Descriptor draft_;
  bool hasDraft_;
};

// Puts `content` into the file `path` in one step, as AtomicFile does. False with errno, with nothing left behind.
[[nodiscard]] bool replaceFile(const std::string& path, std::string_view content, Flush flush,
                               const std::string& suffix = ".new", mode_t mode = 0666);

}  // namespace base
