// What the installer accepts, so that no package is made that it would refuse. A test holds these against the
// installer's own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace jxpack {

constexpr const char* kManifestName = "manifest.json";
constexpr const char* kSignatureName = "manifest.json.p7s";
constexpr std::size_t kMaxPathBytes = 255;
constexpr std::size_t kMaxDescriptionBytes = 1024;
constexpr std::size_t kMaxManifestBytes = std::size_t{4} * 1024 * 1024;
constexpr std::size_t kMaxEntries = 10000;  // the manifest and its signature among them
constexpr std::uint64_t kMaxUnpackedBytes = std::uint64_t{1} << 30;
constexpr std::uint64_t kMaxArchiveBytes = std::uint64_t{1} << 30;
constexpr std::uint64_t kFreeUnpackedBytes = std::uint64_t{16} << 20;
constexpr std::uint64_t kMaxRatio = 200;

// What is wrong with it; empty when nothing is.
[[nodiscard]] std::string nameProblem(const std::string& name);
[[nodiscard]] std::string versionProblem(const std::string& version);
[[nodiscard]] std::string descriptionProblem(const std::string& description);
[[nodiscard]] std::string pathProblem(const std::string& path);

// Two of the paths, or parts of them that are directories, that differ in case only; empty when there are none.
[[nodiscard]] std::string caseProblem(const std::vector<std::string>& paths);

}  // namespace jxpack
