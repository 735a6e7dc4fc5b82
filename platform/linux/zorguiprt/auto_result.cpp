#include "platform/linux/zorguiprt/auto_result.h"

#include <charconv>
#include <cstring>
#include <string_view>

namespace jxplatform {
namespace {

constexpr const char* kAttribute = "data-auto-result=\"";
constexpr const char* kWhiteSpace = " \t\r\n\f";

// The int that `text` begins with, when a double quote follows it.
std::optional<int> quotedInt(std::string_view text) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end == text.data() + text.size() || *end != '"') return std::nullopt;
  return value;
}

// In text without processing instructions.
std::optional<int> attributeIn(std::string_view text) {
  const std::size_t at = text.find(kAttribute);
  const bool isWhole = at != std::string_view::npos && at > 0 && std::strchr(kWhiteSpace, text[at - 1]) != nullptr;
  return isWhole ? quotedInt(text.substr(at + std::strlen(kAttribute))) : std::nullopt;
}

}  // namespace

std::optional<int> autoResult(const std::string& text) {
  const std::string_view page = text;
  for (std::size_t at = 0; at < page.size();) {
    const std::size_t instruction = page.find("<?", at);
    const std::optional<int> found = attributeIn(page.substr(at, instruction - at));
    if (found || instruction == std::string_view::npos) return found;
    const std::size_t end = page.find("?>", instruction);
    if (end == std::string_view::npos) return std::nullopt;
    at = end + 2;
  }
  return std::nullopt;
}

}  // namespace jxplatform
