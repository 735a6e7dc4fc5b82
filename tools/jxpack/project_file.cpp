#include "tools/jxpack/project_file.h"

#include <cerrno>
#include <nlohmann/json.hpp>

#include "base/file_io.h"
#include "base/regular_file.h"
#include "base/text.h"
#include "platform/linux/support/json_text.h"
#include "tools/jxpack/problem.h"

namespace jxpack {
namespace {

using nlohmann::json;

constexpr std::size_t kMaxFileBytes = std::size_t{1024} * 1024;

[[noreturn]] void refuse(const std::string& path, const std::string& why) {
  throw Problem(ExitCode::kUsage, path + ": " + why);
}

// False when there is no such file.
bool readFile(const std::string& path, std::string& text) {
  if (base::readRegularFile(path, kMaxFileBytes, text)) return true;
  if (errno == ENOENT || errno == ENOTDIR) return false;
  throw Problem(ExitCode::kFile, path + ": cannot be read: " + base::errorText(errno));
}

class ProjectFile {
 public:
  ProjectFile(std::string path, const std::string& text) : path_(std::move(path)) {
    if (jxplatform::findZeroByte(text) == std::string::npos) object_ = json::parse(text, nullptr, false);
    if (!object_.is_object()) refuse(path_, "is not a JSON object");
    for (const auto& [key, value] : object_.items()) {
      if (key != "name" && key != "version" && key != "description" && key != "exclude") {
        refuse(path_, base::quotedPrintable(key) + " is not known; name, version, description and exclude are");
      }
    }
  }

  void fill(const char* key, std::string& fact) const {
    const auto member = object_.find(key);
    if (member == object_.end()) return;
    if (!member->is_string()) refuse(path_, std::string("\"") + key + "\" is not a string");
    if (fact.empty()) fact = member->get<std::string>();
  }

  void addPatterns(Exclusions& exclusions) const {
    const auto member = object_.find("exclude");
    if (member == object_.end()) return;
    if (!member->is_array()) refuse(path_, "\"exclude\" is not a list of patterns");
    for (const json& pattern : *member) {
      if (!pattern.is_string()) refuse(path_, "\"exclude\" has something that is not a string");
      exclusions.add(pattern.get<std::string>(), kProjectFileName);
    }
  }

 private:
  std::string path_;
  json object_;
};

}  // namespace

void readProject(const std::string& folder, PackageFacts& facts, Exclusions& exclusions) {
  std::string text;
  const std::string path = folder + '/' + kProjectFileName;
  if (readFile(path, text)) {
    const ProjectFile file(path, text);
    file.fill("name", facts.name);
    file.fill("version", facts.version);
    file.fill("description", facts.description);
    file.addPatterns(exclusions);
  }
  if (readFile(folder + '/' + kIgnoreFileName, text)) exclusions.addLines(text);
}

}  // namespace jxpack
