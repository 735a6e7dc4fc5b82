#include "platform/linux/jxapp/version_order.h"

#include <algorithm>
#include <string_view>

namespace jxinstall {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// Takes the longest beginning of which every character is a digit, or none is.
std::string_view take(std::string_view& text, bool digits) {
  const auto* const end = std::find_if(text.begin(), text.end(), [&](char c) { return isDigit(c) != digits; });
  const std::string_view taken = text.substr(0, static_cast<std::size_t>(end - text.begin()));
  text.remove_prefix(taken.size());
  return taken;
}

// A tilde comes before the end, the end before letters, letters before everything else.
int weightAt(std::string_view text, std::size_t at) {
  constexpr int kAboveLetters = 256;
  if (at >= text.size()) return 0;
  const char c = text[at];
  if (c == '~') return -1;
  return isLetter(c) ? c : static_cast<unsigned char>(c) + kAboveLetters;
}

int compareWords(std::string_view one, std::string_view other) {
  for (std::size_t at = 0; at < std::max(one.size(), other.size()); ++at) {
    const int difference = weightAt(one, at) - weightAt(other, at);
    if (difference != 0) return difference;
  }
  return 0;
}

int compareNumbers(std::string_view one, std::string_view other) {
  one.remove_prefix(std::min(one.find_first_not_of('0'), one.size()));
  other.remove_prefix(std::min(other.find_first_not_of('0'), other.size()));
  if (one.size() != other.size()) return one.size() < other.size() ? -1 : 1;
  return one.compare(other);
}

int compareParts(std::string_view one, std::string_view other) {
  while (!one.empty() || !other.empty()) {
    const int words = compareWords(take(one, false), take(other, false));
    if (words != 0) return words;
    const int numbers = compareNumbers(take(one, true), take(other, true));
    if (numbers != 0) return numbers;
  }
  return 0;
}

struct Version {
  std::string_view main;
  std::string_view revision;  // behind the last hyphen
};

Version split(std::string_view text) {
  const std::size_t hyphen = text.rfind('-');
  if (hyphen == std::string_view::npos) return {text, {}};
  return {text.substr(0, hyphen), text.substr(hyphen + 1)};
}

}  // namespace

int compareVersions(const std::string& one, const std::string& other) {
  const Version left = split(one);
  const Version right = split(other);
  const int main = compareParts(left.main, right.main);
  return main != 0 ? main : compareParts(left.revision, right.revision);
}

}  // namespace jxinstall
