// The structure of a zip archive, read so that every reader must find the same in it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace jxinstall {

constexpr std::size_t kMaxEntries = 10000;
constexpr std::uint64_t kMaxArchiveBytes = std::uint64_t{1} << 30;
constexpr std::uint64_t kMaxUnpackedBytes = std::uint64_t{1} << 30;
// Above kFreeUnpackedBytes the content may be at most kMaxRatio times the archive.
constexpr std::uint64_t kFreeUnpackedBytes = std::uint64_t{16} << 20;
constexpr std::uint64_t kMaxRatio = 200;

struct ZipEntry {
  std::string name;  // without the slash at the end of a directory's
  bool directory = false;
  bool executable = false;
  std::uint64_t size = 0;  // bytes when unpacked
};

struct ZipIndex {
  std::vector<ZipEntry> entries;  // in the order of the archive's bytes
  std::uint64_t unpackedBytes = 0;
};

// Reads the central directory of the archive of `size` bytes behind `fd` and each local header. Throws Failure unless
// the archive is made of nothing but entries that follow each other without gap, the central directory and its end
// record, with local headers that say what the directory says; every entry is a file or directory, stored or deflated,
// not encrypted; the names pass EntryNames; and the limits above hold. ZIP64 is refused.
[[nodiscard]] ZipIndex readZipIndex(int fd, std::uint64_t size);

}  // namespace jxinstall
