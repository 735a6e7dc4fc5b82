#include "platform/linux/jxapp/zip_index.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "base/file_io.h"
#include "base/text.h"
#include "platform/linux/jxapp/entry_names.h"
#include "platform/linux/jxapp/failure.h"

namespace jxinstall {
namespace {

constexpr std::size_t kLocalHeaderBytes = 30;
constexpr std::size_t kCentralHeaderBytes = 46;
constexpr std::size_t kEndRecordBytes = 22;
constexpr std::uint32_t kLocalMark = 0x04034b50;
constexpr std::uint32_t kCentralMark = 0x02014b50;
constexpr std::uint32_t kEndMark = 0x06054b50;
constexpr std::uint32_t kDescriptorMark = 0x08074b50;
constexpr std::uint64_t kMaxDirectoryBytes = std::uint64_t{8} << 20;

constexpr unsigned kFlagEncrypted = 1U << 0;
constexpr unsigned kFlagDescriptor = 1U << 3;  // checksum and sizes follow the data
// Besides the descriptor: the two bits of the packer's effort, and names in UTF-8.
constexpr unsigned kFlagsAllowed = kFlagDescriptor | (3U << 1) | (1U << 11);
constexpr unsigned kMethodStored = 0;
constexpr unsigned kMethodDeflated = 8;
constexpr unsigned kHostUnix = 3;
constexpr unsigned kHostDarwin = 19;
constexpr std::uint32_t kAbove32Bits = 0xffffffff;

// Extra fields that change what the entry is: ZIP64 sizes, another name, encryption (two kinds), a link's target.
constexpr std::array<unsigned, 5> kExtrasRefused = {0x0001, 0x7075, 0x0017, 0x9901, 0x756e};

unsigned u16(const std::string& bytes, std::size_t offset) {
  return static_cast<unsigned char>(bytes[offset]) |
         static_cast<unsigned>(static_cast<unsigned char>(bytes[offset + 1])) << 8U;
}

std::uint32_t u32(const std::string& bytes, std::size_t offset) {
  return u16(bytes, offset) | static_cast<std::uint32_t>(u16(bytes, offset + 2)) << 16U;
}

std::string number(std::uint64_t value) { return std::to_string(value); }

// An entry as the central directory or a local header describes it.
struct Header {
  unsigned flags = 0;
  unsigned method = 0;
  std::uint32_t checksum = 0;
  std::uint32_t packedSize = 0;
  std::uint32_t size = 0;
  std::uint32_t offset = 0;      // central only: where the local header stands
  unsigned host = 0;             // central only: whose attributes
  std::uint32_t attributes = 0;  // central only
  std::string name;
  std::string extra;
};

class IndexReader {
 public:
  IndexReader(int fd, std::uint64_t size) : fd_(fd), size_(size) {}

  ZipIndex read() {
    readEndRecord();
    const std::string directory = bytesAt(directoryOffset_, size_ - kEndRecordBytes - directoryOffset_);
    std::vector<Header> headers = centralHeaders(directory);
    std::sort(headers.begin(), headers.end(), [](const Header& a, const Header& b) { return a.offset < b.offset; });
    ZipIndex index;
    std::uint64_t end = 0;
    for (const Header& header : headers) {
      end = checkPlace(header, end);
      addEntry(header, index);
    }
    if (end != directoryOffset_) {
      throw Failure(number(directoryOffset_ - std::min(end, directoryOffset_)) +
                    " bytes before the central directory belong to no entry");
    }
    checkLimits(index);
    return index;
  }

 private:
  std::string bytesAt(std::uint64_t offset, std::uint64_t count) const {
    std::string bytes(static_cast<std::size_t>(count), '\0');
    const std::int64_t got = base::readAt(fd_, bytes.data(), bytes.size(), offset);
    if (got < 0) throw Failure("cannot be read at byte " + number(offset) + ": " + base::errorText(errno));
    if (static_cast<std::uint64_t>(got) != count) throw Failure("became shorter while it was read");
    return bytes;
  }

  // The record must end the file: a comment or anything else after it would be bytes that no manifest vouches for.
  void readEndRecord() {
    if (size_ > kMaxArchiveBytes) {
      throw Failure("has " + number(size_) + " bytes, at most " + number(kMaxArchiveBytes) + " are allowed");
    }
    if (size_ < kEndRecordBytes) throw Failure("is not a zip archive");
    const std::string first = bytesAt(0, 4);
    const std::string end = bytesAt(size_ - kEndRecordBytes, kEndRecordBytes);
    if (u32(end, 0) != kEndMark || u16(end, 20) != 0) {
      throw Failure(u32(first, 0) == kLocalMark ? "is cut off, or has bytes after its end" : "is not a zip archive");
    }
    entryCount_ = u16(end, 10);
    directoryOffset_ = u32(end, 16);
    const std::uint64_t directoryBytes = u32(end, 12);
    if (u16(end, 4) != 0 || u16(end, 6) != 0 || u16(end, 8) != entryCount_) throw Failure("is a part of a set");
    if (entryCount_ > kMaxEntries) {
      throw Failure("has " + number(entryCount_) + " entries, at most " + number(kMaxEntries) + " are allowed");
    }
    if (directoryBytes > kMaxDirectoryBytes) throw Failure("has a directory of " + number(directoryBytes) + " bytes");
    if (directoryOffset_ + directoryBytes != size_ - kEndRecordBytes) {
      throw Failure("the central directory is not where the end record says");
    }
  }

  std::vector<Header> centralHeaders(const std::string& directory) const {
    std::vector<Header> headers;
    std::size_t at = 0;
    while (at < directory.size()) {
      if (directory.size() - at < kCentralHeaderBytes || u32(directory, at) != kCentralMark) {
        throw Failure("the central directory is broken at byte " + number(directoryOffset_ + at));
      }
      const std::size_t nameBytes = u16(directory, at + 28);
      const std::size_t extraBytes = u16(directory, at + 30);
      const std::size_t total = kCentralHeaderBytes + nameBytes + extraBytes + u16(directory, at + 32);
      if (directory.size() - at < total) throw Failure("the central directory is cut off");
      headers.push_back(centralHeader(directory, at, nameBytes, extraBytes));
      at += total;
    }
    if (headers.size() != entryCount_) {
      throw Failure("the central directory has " + number(headers.size()) + " entries, its end record says " +
                    number(entryCount_));
    }
    return headers;
  }

  static Header centralHeader(const std::string& bytes, std::size_t at, std::size_t nameBytes, std::size_t extraBytes) {
    Header header;
    header.host = u16(bytes, at + 4) >> 8U;
    header.flags = u16(bytes, at + 8);
    header.method = u16(bytes, at + 10);
    header.checksum = u32(bytes, at + 16);
    header.packedSize = u32(bytes, at + 20);
    header.size = u32(bytes, at + 24);
    header.attributes = u32(bytes, at + 38);
    header.offset = u32(bytes, at + 42);
    header.name = bytes.substr(at + kCentralHeaderBytes, nameBytes);
    header.extra = bytes.substr(at + kCentralHeaderBytes + nameBytes, extraBytes);
    checkHeader(header, u16(bytes, at + 34));
    return header;
  }

  static void checkHeader(const Header& header, unsigned disk) {
    const std::string name = base::quotedPrintable(header.name) + ": ";
    if ((header.flags & kFlagEncrypted) != 0) throw Failure(name + "is encrypted");
    if ((header.flags & ~kFlagsAllowed) != 0) throw Failure(name + "has flags that are not allowed");
    if (header.method != kMethodStored && header.method != kMethodDeflated) {
      throw Failure(name + "is packed by method " + number(header.method) + ", only 0 and 8 are allowed");
    }
    if (header.method == kMethodStored && header.packedSize != header.size) {
      throw Failure(name + "is stored, but its two sizes differ");
    }
    if (disk != 0 || header.packedSize == kAbove32Bits || header.size == kAbove32Bits ||
        header.offset == kAbove32Bits) {
      throw Failure(name + "needs ZIP64 or another disk");
    }
    checkExtra(header.extra, name);
  }

  static void checkExtra(const std::string& extra, const std::string& name) {
    std::size_t at = 0;
    while (at < extra.size()) {
      if (extra.size() - at < 4 || extra.size() - at - 4 < u16(extra, at + 2)) {
        throw Failure(name + "has a broken extra field");
      }
      const unsigned kind = u16(extra, at);
      if (std::find(kExtrasRefused.begin(), kExtrasRefused.end(), kind) != kExtrasRefused.end()) {
        throw Failure(name + "has an extra field of kind " + number(kind) + ", which is not allowed");
      }
      at += 4 + u16(extra, at + 2);
    }
  }

  // Checks that the entry begins where the one before it ended, and returns where it ends.
  std::uint64_t checkPlace(const Header& header, std::uint64_t begin) const {
    const std::string name = base::quotedPrintable(header.name) + ": ";
    if (header.offset != begin) {
      throw Failure(name + "begins at byte " + number(header.offset) + ", byte " + number(begin) + " was expected");
    }
    if (begin + kLocalHeaderBytes > directoryOffset_) throw Failure(name + "has no local header");
    const std::string fixed = bytesAt(begin, kLocalHeaderBytes);
    if (u32(fixed, 0) != kLocalMark) throw Failure(name + "has no local header");
    const std::uint64_t variable = std::uint64_t{u16(fixed, 26)} + u16(fixed, 28);
    const std::uint64_t data = begin + kLocalHeaderBytes + variable;
    if (data + header.packedSize > directoryOffset_) throw Failure(name + "reaches into the central directory");
    checkLocal(header, fixed, bytesAt(begin + kLocalHeaderBytes, variable));
    const std::uint64_t end = data + header.packedSize;
    return (header.flags & kFlagDescriptor) != 0 ? checkDescriptor(header, end) : end;
  }

  static void checkLocal(const Header& header, const std::string& fixed, const std::string& variable) {
    const std::string name = base::quotedPrintable(header.name) + ": ";
    const std::size_t nameBytes = u16(fixed, 26);
    const bool sizesFollow = (header.flags & kFlagDescriptor) != 0;
    const auto agrees = [&](std::size_t offset, std::uint32_t central) {
      const std::uint32_t local = u32(fixed, offset);
      return local == central || (sizesFollow && local == 0);
    };
    if (u16(fixed, 6) != header.flags || u16(fixed, 8) != header.method || !agrees(14, header.checksum) ||
        !agrees(18, header.packedSize) || !agrees(22, header.size) || variable.substr(0, nameBytes) != header.name) {
      throw Failure(name + "the local header differs from the central directory");
    }
    checkExtra(variable.substr(nameBytes), name);
  }

  // The mark in front of the descriptor is optional.
  std::uint64_t checkDescriptor(const Header& header, std::uint64_t at) const {
    constexpr std::size_t kDescriptorBytes = 12;
    const std::string bytes = bytesAt(at, std::min<std::uint64_t>(kDescriptorBytes + 4, directoryOffset_ - at));
    for (const std::size_t skip : {std::size_t{4}, std::size_t{0}}) {
      if (bytes.size() < skip + kDescriptorBytes || (skip != 0 && u32(bytes, 0) != kDescriptorMark)) continue;
      if (u32(bytes, skip) == header.checksum && u32(bytes, skip + 4) == header.packedSize &&
          u32(bytes, skip + 8) == header.size) {
        return at + skip + kDescriptorBytes;
      }
    }
    throw Failure(base::quotedPrintable(header.name) + ": the data descriptor differs from the central directory");
  }

  void addEntry(const Header& header, ZipIndex& index) {
    ZipEntry entry;
    entry.name = header.name;
    entry.size = header.size;
    if (!entry.name.empty() && entry.name.back() == '/') {
      entry.directory = true;
      entry.name.pop_back();
    }
    const unsigned mode =
        header.host == kHostUnix || header.host == kHostDarwin ? static_cast<unsigned>(header.attributes >> 16U) : 0U;
    names_.add(entry.name, entry.directory);
    checkType(entry, mode);
    entry.executable = !entry.directory && (mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0;
    index.unpackedBytes += entry.size;
    index.entries.push_back(std::move(entry));
  }

  // Attributes of a packer on another system say nothing of the type; the name does.
  static void checkType(const ZipEntry& entry, unsigned mode) {
    const unsigned type = mode & S_IFMT;
    const std::string name = base::quotedPrintable(entry.name) + ": ";
    if (type == S_IFLNK) throw Failure(name + "is a link");
    if (type != 0 && type != S_IFREG && type != S_IFDIR) throw Failure(name + "is neither a file nor a directory");
    if (type != 0 && (type == S_IFDIR) != entry.directory) throw Failure(name + "is a file and a directory");
    if (entry.directory && entry.size != 0) throw Failure(name + "is a directory with content");
  }

  void checkLimits(const ZipIndex& index) const {
    if (index.unpackedBytes > kMaxUnpackedBytes) {
      throw Failure("unpacks to " + number(index.unpackedBytes) + " bytes, at most " + number(kMaxUnpackedBytes) +
                    " are allowed");
    }
    if (index.unpackedBytes > kFreeUnpackedBytes && index.unpackedBytes > kMaxRatio * size_) {
      throw Failure("unpacks to " + number(index.unpackedBytes) + " bytes, more than " + number(kMaxRatio) +
                    " times its " + number(size_));
    }
  }

  int fd_;
  std::uint64_t size_;
  std::uint64_t directoryOffset_ = 0;
  std::size_t entryCount_ = 0;
  EntryNames names_;
};

}  // namespace

ZipIndex readZipIndex(int fd, std::uint64_t size) { return IndexReader(fd, size).read(); }

}  // namespace jxinstall
