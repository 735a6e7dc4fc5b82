#include "http/part_headers.h"

#include <algorithm>
#include <cstddef>

#include "http/header_text.h"
#include "http/next_param.h"

namespace {

bool isDisposition(const std::string& line, std::size_t colon) {
  return zorhtml::toLowerCopy(line.substr(0, colon)) == "content-disposition";
}

// True when the parameters name the field; `fileName` is changed where they tell one.
bool readDisposition(const std::string& text, const std::string& field, std::string& fileName) {
  std::size_t pos = 0;
  std::string name;
  std::string value;
  if (nextParam(text, pos, name, value) == kNoToken || name != "form-data") return false;
  bool matched = false;
  while (nextParam(text, pos, name, value) != kNoToken) {
    if (name == "name" && value == field) matched = true;
    if (name == "filename") fileName = value;
  }
  return matched;
}

}  // namespace

std::vector<std::string> splitPartHeaders(const std::string& block) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < block.size();) {
    const std::size_t end = std::min(block.find('\n', at), block.size());
    std::string line = block.substr(at, end - at);
    std::replace(line.begin(), line.end(), '\r', ' ');
    const bool folded = !line.empty() && (line[0] == ' ' || line[0] == '\t');
    if (folded && !lines.empty()) {
      lines.back() += line;
    } else {
      lines.push_back(line);
    }
    at = end + 1;
  }
  return lines;
}

bool isFileOfField(const std::vector<std::string>& lines, const std::string& field) {
  std::string fileName;
  for (const std::string& line : lines) {
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos || !isDisposition(line, colon)) continue;
    if (readDisposition(line.substr(colon + 1), field, fileName)) return !fileName.empty();
  }
  return false;
}
