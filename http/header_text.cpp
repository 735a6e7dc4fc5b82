#include "http/header_text.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace zorhtml {

namespace {

bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

}  // namespace

std::vector<std::string> splitWords(const std::string& text) {
  std::vector<std::string> words;
  words.reserve(3);  // of a start line
  auto at = text.begin();
  for (;;) {
    at = std::find_if_not(at, text.end(), isSpace);
    if (at == text.end()) return words;
    const auto end = std::find_if(at, text.end(), isSpace);
    words.emplace_back(at, end);
    at = end;
  }
}

std::string trimSpace(const std::string& text) {
  const auto from = std::find_if_not(text.begin(), text.end(), isSpace);
  const auto to = std::find_if_not(text.rbegin(), std::make_reverse_iterator(from), isSpace).base();
  return {from, to};
}

std::string toLowerCopy(const std::string& text) {
  std::string lower = text;
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

bool isFramingKey(const std::string& lowerKey) {
  return lowerKey == "content-length" || lowerKey == "content-type" || lowerKey == "content-encoding" ||
         lowerKey == "transfer-encoding";
}

}  // namespace zorhtml
