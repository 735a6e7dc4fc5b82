#include "platform/linux/support/terminal_settings.h"

#include <sys/stat.h>

#include <cerrno>
#include <nlohmann/json.hpp>

#include "base/regular_file.h"
#include "platform/linux/support/json_text.h"

namespace jxplatform {
namespace {

using nlohmann::json;

// Far above any sensible file; a bound so that a wrong file cannot fill the memory.
constexpr std::size_t kMaxFileBytes = std::size_t{1024} * 1024;

std::optional<std::string> textMember(const json& object, const char* name) {
  const auto member = object.find(name);
  if (member == object.end() || !member->is_string()) return std::nullopt;
  return member->get<std::string>();
}

std::optional<std::int64_t> integerMember(const json& object, const char* name) {
  const auto member = object.find(name);
  if (member == object.end() || !member->is_number_integer()) return std::nullopt;
  return member->get<std::int64_t>();
}

Sponsor sponsorOf(const json& object) {
  Sponsor sponsor;
  const auto member = object.find("sponsor");
  if (member == object.end() || !member->is_object()) return sponsor;
  sponsor.identifier = textMember(*member, "identifier");
  sponsor.number = integerMember(*member, "number");
  sponsor.name = textMember(*member, "name");
  return sponsor;
}

std::optional<SignaturePolicy> policyOf(const std::optional<std::string>& word) {
  if (word == "off") return SignaturePolicy::kOff;
  if (word == "warn") return SignaturePolicy::kWarn;
  if (word == "required") return SignaturePolicy::kRequired;
  return std::nullopt;
}

std::optional<DowngradePolicy> downgradePolicyOf(const std::optional<std::string>& word) {
  if (word == "allow") return DowngradePolicy::kAllow;
  if (word == "warn") return DowngradePolicy::kWarn;
  if (word == "refuse") return DowngradePolicy::kRefuse;
  return std::nullopt;
}

TerminalSettings unreadable() {
  TerminalSettings settings;
  settings.signaturesMalformed = true;
  settings.downgradesMalformed = true;
  return settings;
}

}  // namespace

TerminalSettings parseTerminalSettings(const std::string& text) {
  TerminalSettings settings;
  const json object = findZeroByte(text) == std::string::npos ? json::parse(text, nullptr, false) : json();
  if (!object.is_object()) return unreadable();
  settings.serial = textMember(object, "serial");
  settings.guiVersion = textMember(object, "gui_version");
  settings.sponsor = sponsorOf(object);
  settings.signatures = policyOf(textMember(object, "signatures"));
  settings.signaturesMalformed = object.contains("signatures") && !settings.signatures;
  settings.downgrades = downgradePolicyOf(textMember(object, "downgrades"));
  settings.downgradesMalformed = object.contains("downgrades") && !settings.downgrades;
  return settings;
}

TerminalSettings readTerminalSettings(const std::string& root) {
  std::string text;
  if (base::readRegularFile(root + "/terminal.json", kMaxFileBytes, text)) return parseTerminalSettings(text);
  // A link that leads nowhere, to a file system that is not mounted, must not lift what is set there.
  struct stat status {};
  const bool absent = errno == ENOENT && lstat((root + "/terminal.json").c_str(), &status) != 0;
  return absent ? TerminalSettings() : unreadable();
}

}  // namespace jxplatform
