#include "platform/linux/jxapp/manifest.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "base/text.h"
#include "platform/linux/jxapp/entry_names.h"
#include "platform/linux/jxapp/failure.h"
#include "platform/linux/support/json_text.h"

namespace jxinstall {
namespace {

using nlohmann::json;

constexpr std::size_t kMaxNameOrVersionBytes = 64;
constexpr std::size_t kDigestDigits = 64;
constexpr std::size_t kMaxDepth = 16;

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLower(char c) { return c >= 'a' && c <= 'z'; }
bool isUpper(char c) { return c >= 'A' && c <= 'Z'; }
bool isOneOf(char c, const char* set) { return c != '\0' && std::string(set).find(c) != std::string::npos; }

// Refuses what a JSON reader would pass over in silence: a repeated key, of which only the last would count, and
// nesting without bound.
class StrictKeys {
 public:
  bool operator()(int depth, json::parse_event_t event, const json& value) {
    const auto level = static_cast<std::size_t>(depth);
    if (level > kMaxDepth) throw Failure("manifest.json: nested more than " + std::to_string(kMaxDepth) + " deep");
    if (keys_.size() <= level) keys_.resize(level + 1);
    if (event == json::parse_event_t::object_start && keys_.size() > level + 1) keys_[level + 1].clear();
    if (event == json::parse_event_t::key && !keys_[level].insert(value.get<std::string>()).second) {
      throw Failure("manifest.json: the key " + base::quotedPrintable(value.get<std::string>()) + " stands twice");
    }
    return true;
  }

 private:
  std::vector<std::set<std::string>> keys_;  // by depth
};

std::string notJsonAt(std::size_t byte) { return "manifest.json: is not JSON at byte " + std::to_string(byte); }

json parseObject(const std::string& bytes) {
  const std::size_t zero = jxplatform::findZeroByte(bytes);
  if (zero != std::string::npos) throw Failure(notJsonAt(zero + 1));
  try {
    StrictKeys keys;
    json object = json::parse(bytes, std::ref(keys));
    if (!object.is_object()) throw Failure("manifest.json: is not a JSON object");
    return object;
  } catch (const json::parse_error& error) {
    throw Failure(notJsonAt(error.byte));
  } catch (const json::out_of_range&) {
    throw Failure("manifest.json: has a number beyond the range of double");
  }
}

std::string textMember(const json& object, const char* key) {
  const auto member = object.find(key);
  if (member == object.end()) throw Failure(std::string("manifest.json: has no \"") + key + '"');
  if (!member->is_string()) throw Failure(std::string("manifest.json: \"") + key + "\" is not a string");
  return member->get<std::string>();
}

std::string descriptionOf(const json& object) {
  if (!object.contains("description")) return "";
  std::string text = textMember(object, "description");
  if (text.size() > kMaxDescriptionBytes) {
    throw Failure("manifest.json: \"description\" has " + std::to_string(text.size()) + " bytes, at most " +
                  std::to_string(kMaxDescriptionBytes) + " are allowed");
  }
  if (std::any_of(text.begin(), text.end(), base::isControl)) {
    throw Failure("manifest.json: \"description\" has a control character");
  }
  return text;
}

bool isDigest(const std::string& text) {
  return text.size() == kDigestDigits &&
         std::all_of(text.begin(), text.end(), [](char c) { return isDigit(c) || (c >= 'a' && c <= 'f'); });
}

std::map<std::string, std::string> filesOf(const json& object) {
  const auto member = object.find("files");
  if (member == object.end()) throw Failure("manifest.json: has no \"files\"");
  if (!member->is_object()) throw Failure("manifest.json: \"files\" is not an object");
  std::map<std::string, std::string> files;
  for (const auto& [path, digest] : member->items()) {
    const std::string problem = nameProblem(path);
    if (!problem.empty()) throw Failure("manifest.json: " + base::quotedPrintable(path) + ": " + problem);
    if (path == kManifestName || path == kSignatureName)
      throw Failure("manifest.json: lists " + base::quotedPrintable(path));
    if (!digest.is_string() || !isDigest(digest.get<std::string>())) {
      throw Failure("manifest.json: " + base::quotedPrintable(path) + ": the digest is not 64 lower-case hex digits");
    }
    files.emplace(path, digest.get<std::string>());
  }
  return files;
}

bool asksForRemoval(const json& object) {
  const auto member = object.find("remove");
  if (member == object.end()) return false;
  if (!member->is_boolean()) throw Failure("manifest.json: \"remove\" is neither true nor false");
  if (!member->get<bool>()) return false;
  for (const char* key : {"version", "files"}) {
    if (object.contains(key)) throw Failure(std::string("manifest.json: asks for a removal, but has \"") + key + '"');
  }
  return true;
}

std::string versionOf(const json& object) {
  std::string version = textMember(object, "version");
  if (!isApplicationVersion(version)) {
    throw Failure("manifest.json: the version " + base::quotedPrintable(version) +
                  " is not [0-9A-Za-z][0-9A-Za-z.+~-]{0,63}");
  }
  return version;
}

}  // namespace

bool isApplicationName(const std::string& text) {
  const auto allowed = [](char c) { return isLower(c) || isDigit(c) || isOneOf(c, "._-"); };
  return !text.empty() && text.size() <= kMaxNameOrVersionBytes && (isLower(text[0]) || isDigit(text[0])) &&
         std::all_of(text.begin(), text.end(), allowed);
}

bool isApplicationVersion(const std::string& text) {
  const auto alphanumeric = [](char c) { return isLower(c) || isUpper(c) || isDigit(c); };
  const auto allowed = [&](char c) { return alphanumeric(c) || isOneOf(c, ".+~-"); };
  return !text.empty() && text.size() <= kMaxNameOrVersionBytes && alphanumeric(text[0]) &&
         std::all_of(text.begin(), text.end(), allowed);
}

Manifest parseManifest(const std::string& bytes) {
  const json object = parseObject(bytes);
  Manifest manifest;
  manifest.name = textMember(object, "name");
  if (!isApplicationName(manifest.name)) {
    throw Failure("manifest.json: the name " + base::quotedPrintable(manifest.name) +
                  " is not [a-z0-9][a-z0-9._-]{0,63}");
  }
  manifest.remove = asksForRemoval(object);
  if (!manifest.remove) manifest.version = versionOf(object);
  manifest.description = descriptionOf(object);
  if (!manifest.remove) manifest.files = filesOf(object);
  return manifest;
}

}  // namespace jxinstall
