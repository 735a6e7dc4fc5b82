#include "http/next_param.h"

#include <array>
#include <cstdint>

namespace {

using CharacterSet = std::array<std::uint16_t, 16>;  // bit 15 - c % 16 of word c / 16 stands for the character c

constexpr unsigned bitOf(unsigned char c) { return 0x8000U >> (c % 16U); }

constexpr CharacterSet makeSet(const char* characters) {
  CharacterSet set{};
  for (; *characters != '\0'; ++characters) {
    const auto c = static_cast<unsigned char>(*characters);
    set[c / 16U] = static_cast<std::uint16_t>(set[c / 16U] | bitOf(c));
  }
  return set;
}

constexpr CharacterSet kSeparators = makeSet("\t \"(),:;<=>?@[\\]{}");

bool isSeparator(char character) {
  const auto c = static_cast<unsigned char>(character);
  return (kSeparators[c / 16U] & bitOf(c)) != 0;
}

void takeToken(const std::string& text, std::size_t& pos, std::string& token) {
  const std::size_t begin = pos;
  while (pos < text.size() && !isSeparator(text[pos])) ++pos;
  token.assign(text, begin, pos - begin);
}

// From behind the opening quote.
void takeQuoted(const std::string& text, std::size_t& pos, std::string& value) {
  while (pos < text.size() && text[pos] != '"') {
    if (text[pos] == '\\' && ++pos == text.size()) return;
    value += text[pos++];
  }
  if (pos < text.size()) ++pos;
}

}  // namespace

int nextParam(const std::string& text, std::size_t& pos, std::string& name, std::string& value) {
  name.clear();
  value.clear();
  while (pos < text.size() && isSeparator(text[pos])) ++pos;
  if (pos >= text.size()) return kNoToken;
  takeToken(text, pos, name);
  if (pos >= text.size() || text[pos] != '=') return kBareToken;
  ++pos;
  if (pos < text.size() && text[pos] == '"') {
    takeQuoted(text, ++pos, value);
  } else {
    takeToken(text, pos, value);
  }
  return kNameValue;
}
