// Zip archives made byte by byte, so that a test can make them wrong in one place.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

// One entry, stored. What the local header says is what the central directory says, but for what is overridden.
struct RawEntry {
  std::string name;
  std::string content;
  unsigned mode = 0100644;  // with the file type's bits
  unsigned host = 3;        // 3: the mode counts
  unsigned flags = 0;
  unsigned method = 0;
  std::string localExtra;
  std::string centralExtra;
  std::string comment;
  std::string gapBefore;  // bytes in front of the local header
  std::string afterData;  // such as a data descriptor
  std::optional<std::string> localName;
  std::optional<unsigned> localFlags;
  std::optional<unsigned> localMethod;
  std::optional<std::uint32_t> localChecksum;
  std::optional<std::uint32_t> localPackedSize;
  std::optional<std::uint32_t> localSize;
  std::optional<std::uint32_t> packedSize;
  std::optional<std::uint32_t> size;
  std::optional<std::uint32_t> offset;
};

struct RawEnd {
  std::string gapBeforeDirectory;
  std::string comment;
  std::optional<unsigned> count;
  unsigned disk = 0;
};

std::uint32_t zipChecksum(const std::string& content);
std::string little16(unsigned value);
std::string little32(std::uint32_t value);
std::string zipBytes(const std::vector<RawEntry>& entries, const RawEnd& end = {});

// A manifest for these files, with their true digests.
std::string manifestOf(const std::string& name, const std::string& version,
                       const std::map<std::string, std::string>& files);

// The entries of a whole, good package: manifest first.
std::vector<RawEntry> packageEntries(const std::string& name, const std::string& version,
                                     const std::map<std::string, std::string>& files);

std::string sha256Of(const std::string& bytes);
