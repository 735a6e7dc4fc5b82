#include "tools/jxpack/exclusions.h"

#include <fnmatch.h>

#include <algorithm>

#include "base/text.h"
#include "tools/jxpack/problem.h"

namespace jxpack {
namespace {

struct Default {
  const char* pattern;
  const char* reason;
};

constexpr const char* kVersionControl = "version control";
constexpr const char* kBackup = "an editor's backup";
constexpr const char* kDesktop = "a desktop's file";
constexpr const char* kOwn = "jxpack's own file";
constexpr Default kDefaults[] = {
    {".git", kVersionControl},
    {".gitattributes", kVersionControl},
    {".gitignore", kVersionControl},
    {".gitmodules", kVersionControl},
    {".hg", kVersionControl},
    {".hgignore", kVersionControl},
    {".hgtags", kVersionControl},
    {".svn", kVersionControl},
    {".bzr", kVersionControl},
    {".bzrignore", kVersionControl},
    {".jj", kVersionControl},
    {"_darcs", kVersionControl},
    {"CVS", kVersionControl},
    {"*~", kBackup},
    {"*.swp", kBackup},
    {"*.swo", kBackup},
    {".#*", kBackup},
    {"#*#", kBackup},
    {".DS_Store", kDesktop},
    {"Thumbs.db", kDesktop},
    {"/jxpackage.json", kOwn},
    {"/.jxignore", kOwn},
};

[[noreturn]] void refuse(const std::string& pattern, const std::string& why, const std::string& source) {
  throw Problem(ExitCode::kUsage, source + ": the pattern " + base::quotedPrintable(pattern) + ' ' + why);
}

std::string lastComponent(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

Exclusions::Exclusions() {
  for (const auto& [pattern, reason] : kDefaults) {
    add(pattern, reason);
    rules_.back().reason = reason;
  }
}

void Exclusions::add(const std::string& pattern, const std::string& source) {
  Rule rule;
  rule.pattern = pattern;
  rule.reason = source + ": " + pattern;
  rule.takesBack = base::beginsWith(rule.pattern, "!");
  if (rule.takesBack) rule.pattern.erase(0, 1);
  rule.foldersOnly = base::endsWith(rule.pattern, "/");
  if (rule.foldersOnly) rule.pattern.pop_back();
  rule.wholePath = rule.pattern.find('/') != std::string::npos;
  if (base::beginsWith(rule.pattern, "/")) rule.pattern.erase(0, 1);
  if (rule.pattern.empty()) refuse(pattern, "is empty", source);
  if (rule.pattern.find("**") != std::string::npos) {
    refuse(pattern, "has \"**\"; one without a slash holds at every depth", source);
  }
  rules_.push_back(std::move(rule));
}

void Exclusions::addLines(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    std::string line = text.substr(at, end - at);
    at = end + 1;
    line.erase(line.find_last_not_of(" \t\r") + 1);
    if (!line.empty() && line.front() != '#') add(line, ".jxignore");
  }
}

std::string Exclusions::reasonFor(const std::string& path, bool folder) const {
  const std::string name = lastComponent(path);
  for (auto rule = rules_.rbegin(); rule != rules_.rend(); ++rule) {
    if (rule->foldersOnly && !folder) continue;
    const std::string& subject = rule->wholePath ? path : name;
    if (fnmatch(rule->pattern.c_str(), subject.c_str(), FNM_PATHNAME) != 0) continue;
    return rule->takesBack ? "" : rule->reason;
  }
  return "";
}

}  // namespace jxpack
