#include "tools/jxpack/package_rules.h"

#include <algorithm>
#include <map>

#include "base/text.h"

namespace jxpack {
namespace {

constexpr std::size_t kMaxNameBytes = 64;

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLower(char c) { return c >= 'a' && c <= 'z'; }
bool isUpper(char c) { return c >= 'A' && c <= 'Z'; }

// True for one `first` and up to 63 characters that are `first` or among `others`.
template <typename First>
bool isWord(const std::string& text, First first, const std::string& others) {
  const auto allowed = [&](char c) { return first(c) || others.find(c) != std::string::npos; };
  return !text.empty() && text.size() <= kMaxNameBytes && first(text.front()) &&
         std::all_of(text.begin(), text.end(), allowed);
}

// The path and every directory on the way to it.
std::vector<std::string> withParents(const std::string& path) {
  std::vector<std::string> all;
  for (std::size_t end = path.find('/'); end != std::string::npos; end = path.find('/', end + 1)) {
    all.push_back(path.substr(0, end));
  }
  all.push_back(path);
  return all;
}

}  // namespace

std::string nameProblem(const std::string& name) {
  const auto first = [](char c) { return isLower(c) || isDigit(c); };
  return isWord(name, first, "._-") ? "" : "the name must match [a-z0-9][a-z0-9._-]{0,63}";
}

std::string versionProblem(const std::string& version) {
  const auto first = [](char c) { return isLower(c) || isUpper(c) || isDigit(c); };
  return isWord(version, first, ".+~-") ? "" : "the version must match [0-9A-Za-z][0-9A-Za-z.+~-]{0,63}";
}

std::string descriptionProblem(const std::string& description) {
  if (description.size() > kMaxDescriptionBytes) {
    return "the description has " + std::to_string(description.size()) + " bytes, at most " +
           std::to_string(kMaxDescriptionBytes) + " are allowed";
  }
  if (std::any_of(description.begin(), description.end(), base::isControl))
    return "the description has a control character";
  return "";
}

std::string pathProblem(const std::string& path) {
  if (path == kManifestName || path == kSignatureName) return "the name is reserved";
  if (path.size() > kMaxPathBytes) {
    return "the path has " + std::to_string(path.size()) + " bytes, at most " + std::to_string(kMaxPathBytes) +
           " are allowed";
  }
  const auto isAllowed = [](char c) { return base::isPrintable(c) && c != '\\'; };
  if (!std::all_of(path.begin(), path.end(), isAllowed)) {
    return "the path has a character that is not printable ASCII, or a backslash";
  }
  const std::string framed = '/' + path + '/';
  const auto has = [&](const char* component) { return framed.find(component) != std::string::npos; };
  return has("//") || has("/./") || has("/../") ? R"(the path has an empty component, "." or "..")" : "";
}

std::string caseProblem(const std::vector<std::string>& paths) {
  std::map<std::string, std::string> seen;
  for (const std::string& path : paths) {
    for (const std::string& part : withParents(path)) {
      const auto place = seen.try_emplace(base::lowerCase(part), part).first;
      if (place->second != part) return "\"" + place->second + "\" and \"" + part + "\" differ in case only";
    }
  }
  const std::string manifest = base::lowerCase(kManifestName);
  const std::string signature = base::lowerCase(kSignatureName);
  for (const std::string& name : {manifest, signature}) {
    if (seen.count(name) != 0) return "\"" + seen[name] + "\" and \"" + name + "\" differ in case only";
  }
  return "";
}

}  // namespace jxpack
