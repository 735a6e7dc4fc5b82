// The terminal's identity and policy, as terminal.json in the platform root states them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace jxplatform {

// What the installer demands of packages.
enum class SignaturePolicy { kOff, kWarn, kRequired };

// What the installer does with an application that is older than the installed one.
enum class DowngradePolicy { kAllow, kWarn, kRefuse };

struct Sponsor {
  std::optional<std::string> identifier;  // hexadecimal digits as they stand in the file, such as "0203200821C5"
  std::optional<std::int64_t> number;
  std::optional<std::string> name;
};

// A member that is absent from the file or not of its type is empty: not known.
struct TerminalSettings {
  std::optional<std::string> serial;
  std::optional<std::string> guiVersion;
  Sponsor sponsor;
  std::optional<SignaturePolicy> signatures;
  bool signaturesMalformed = false;  // "signatures" is there but is none of the three words, or the file is not JSON
  std::optional<DowngradePolicy> downgrades;
  bool downgradesMalformed = false;  // likewise
};

// Reads `text`, the content of a terminal.json. Anything that is not a JSON object yields settings of which nothing is
// known. Any thread; throws nothing but for want of memory.
[[nodiscard]] TerminalSettings parseTerminalSettings(const std::string& text);

// Reads `root`/terminal.json anew, so that a change holds from the next call on. An absent file yields settings of
// which nothing is known; so does one that cannot be read, but with both policies malformed. Any thread; blocks on
// the file.
[[nodiscard]] TerminalSettings readTerminalSettings(const std::string& root);

}  // namespace jxplatform
