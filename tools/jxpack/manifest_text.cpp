#include "tools/jxpack/manifest_text.h"

#include <nlohmann/json.hpp>

#include "platform/linux/jxapp/manifest.h"
#include "tools/jxpack/package_rules.h"
#include "tools/jxpack/problem.h"

namespace jxpack {
namespace {

void check(const std::string& problem) {
  if (!problem.empty()) throw Problem(ExitCode::kRefused, problem);
}

std::string dump(const nlohmann::ordered_json& manifest) {
  constexpr int kIndent = 2;
  try {
    return manifest.dump(kIndent) + '\n';
  } catch (const nlohmann::json::type_error&) {
    throw Problem(ExitCode::kRefused, "the description is not UTF-8");
  }
}

}  // namespace

std::string manifestText(const PackageFacts& facts, const std::vector<SourceFile>& files) {
  nlohmann::ordered_json manifest;
  manifest["name"] = facts.name;
  manifest["version"] = facts.version;
  manifest["description"] = facts.description;
  manifest["files"] = nlohmann::ordered_json::object();
  for (const SourceFile& file : files) manifest["files"][file.path] = file.digest;
  std::string text = dump(manifest);
  check(manifestProblem(text));
  if (text.size() > jxinstall::kMaxManifestBytes) {
    check("the manifest would have " + std::to_string(text.size()) + " bytes");
  }
  return text;
}

std::string removalText(const std::string& name) {
  nlohmann::ordered_json manifest;
  manifest["name"] = name;
  manifest["remove"] = true;
  std::string text = dump(manifest);
  check(manifestProblem(text));
  return text;
}

}  // namespace jxpack
