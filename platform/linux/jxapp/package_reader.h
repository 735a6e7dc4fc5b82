// The content of a package's entries, unpacked in the order of the archive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "platform/linux/jxapp/zip_index.h"

struct archive;

namespace jxinstall {

// Receives a piece of an entry's content.
using ContentSink = std::function<void(const char* data, std::size_t size)>;

// Reads the archive behind a descriptor, which it moves about in but does not close, from its first byte.
class PackageReader {
 public:
  // Throws Failure when the archive cannot be opened.
  explicit PackageReader(int fd);

  // Steps to the next entry, which must be `entry`; the entries are those of the index, in its order. Throws Failure
  // when it is another one.
  void next(const ZipEntry& entry);

  // Unpacks the entry that next() stepped to. Throws Failure when the data is broken, or has more or fewer bytes than
  // the index says, and whatever `sink` throws.
  void unpack(const ZipEntry& entry, const ContentSink& sink);

 private:
  std::unique_ptr<archive, void (*)(archive*)> archive_;
};

}  // namespace jxinstall
