#include "tests/unit/platform/jxapp/zip_bytes.h"

#include "platform/linux/openssl/sha256.h"

namespace {

std::string localHeader(const RawEntry& entry) {
  const std::string name = entry.localName.value_or(entry.name);
  const auto size = static_cast<std::uint32_t>(entry.content.size());
  return "PK\x03\x04" + little16(20) + little16(entry.localFlags.value_or(entry.flags)) +
         little16(entry.localMethod.value_or(entry.method)) + little32(0) +
         little32(entry.localChecksum.value_or(zipChecksum(entry.content))) +
         little32(entry.localPackedSize.value_or(entry.packedSize.value_or(size))) +
         little32(entry.localSize.value_or(entry.size.value_or(size))) + little16(static_cast<unsigned>(name.size())) +
         little16(static_cast<unsigned>(entry.localExtra.size())) + name + entry.localExtra;
}

std::string centralHeader(const RawEntry& entry, std::uint32_t offset) {
  const auto size = static_cast<std::uint32_t>(entry.content.size());
  return "PK\x01\x02" + little16(20 + entry.host * 256) + little16(20) + little16(entry.flags) +
         little16(entry.method) + little32(0) + little32(zipChecksum(entry.content)) +
         little32(entry.packedSize.value_or(size)) + little32(entry.size.value_or(size)) +
         little16(static_cast<unsigned>(entry.name.size())) +
         little16(static_cast<unsigned>(entry.centralExtra.size())) +
         little16(static_cast<unsigned>(entry.comment.size())) + little16(0) + little16(0) +
         little32(entry.mode << 16U) + little32(entry.offset.value_or(offset)) + entry.name + entry.centralExtra +
         entry.comment;
}

}  // namespace

std::uint32_t zipChecksum(const std::string& content) {
  std::uint32_t sum = 0xffffffff;
  for (const char c : content) {
    sum ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit) sum = (sum >> 1U) ^ ((sum & 1U) != 0 ? 0xedb88320U : 0U);
  }
  return ~sum;
}

std::string little16(unsigned value) {
  return {static_cast<char>(value & 255U), static_cast<char>((value >> 8U) & 255U)};
}

std::string little32(std::uint32_t value) { return little16(value & 0xffffU) + little16(value >> 16U); }

std::string zipBytes(const std::vector<RawEntry>& entries, const RawEnd& end) {
  std::string bytes;
  std::string directory;
  for (const RawEntry& entry : entries) {
    bytes += entry.gapBefore;
    directory += centralHeader(entry, static_cast<std::uint32_t>(bytes.size()));
    bytes += localHeader(entry) + entry.content + entry.afterData;
  }
  bytes += end.gapBeforeDirectory;
  const unsigned count = end.count.value_or(static_cast<unsigned>(entries.size()));
  const auto offset = static_cast<std::uint32_t>(bytes.size());
  return bytes + directory + "PK\x05\x06" + little16(end.disk) + little16(end.disk) + little16(count) +
         little16(count) + little32(static_cast<std::uint32_t>(directory.size())) + little32(offset) +
         little16(static_cast<unsigned>(end.comment.size())) + end.comment;
}

std::string sha256Of(const std::string& bytes) {
  jxplatform::Sha256 digest;
  digest.add(bytes.data(), bytes.size());
  return digest.hex().value();
}

std::string manifestOf(const std::string& name, const std::string& version,
                       const std::map<std::string, std::string>& files) {
  std::string list;
  for (const auto& [path, content] : files) {
    list += (list.empty() ? "" : ",") + ('"' + path + "\":\"" + sha256Of(content) + '"');
  }
  return R"({"name":")" + name + R"(","version":")" + version + R"(","description":"A test","files":{)" + list + "}}";
}

std::vector<RawEntry> packageEntries(const std::string& name, const std::string& version,
                                     const std::map<std::string, std::string>& files) {
  std::vector<RawEntry> entries(1);
  entries[0].name = "manifest.json";
  entries[0].content = manifestOf(name, version, files);
  for (const auto& [path, content] : files) {
    entries.emplace_back();
    entries.back().name = path;
    entries.back().content = content;
  }
  return entries;
}
