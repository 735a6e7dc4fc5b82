// The manifest of a package.
#pragma once

#include <map>
#include <string>

namespace jxinstall {

constexpr const char* kManifestName = "manifest.json";
constexpr const char* kSignatureName = "manifest.json.p7s";
constexpr std::size_t kMaxManifestBytes = std::size_t{4} * 1024 * 1024;
constexpr std::size_t kMaxDescriptionBytes = 1024;

struct Manifest {
  std::string name;
  std::string version;
  std::string description;                   // empty where the manifest has none
  std::map<std::string, std::string> files;  // path -> SHA-256 as 64 lower-case hex digits
  bool remove = false;                       // asks for the application's removal: has neither version nor files
};

// True for [a-z0-9][a-z0-9._-]{0,63}.
[[nodiscard]] bool isApplicationName(const std::string& text);

// True for [0-9A-Za-z][0-9A-Za-z.+~-]{0,63}.
[[nodiscard]] bool isApplicationVersion(const std::string& text);

// Reads the bytes of a manifest.json. Throws Failure, naming the place, when it is not a JSON object, a key stands
// twice in one object, a member is missing or malformed, a file's path or digest is, or it asks for a removal and has
// a version or files. Members it does not know are ignored.
[[nodiscard]] Manifest parseManifest(const std::string& bytes);

}  // namespace jxinstall
