#include "upload/form_decoder.h"

#include <cstring>
#include <utility>

#include "http/next_param.h"
#include "http/part_headers.h"

namespace {

// memmem, of the C library, and not a loop over memchr: on a body of line breaks, or of delimiters less their last
// byte, a search that stops at each candidate falls to a fraction of its speed.
const char* find(const char* data, std::size_t size, const std::string& text) {
  return static_cast<const char*>(memmem(data, size, text.data(), text.size()));
}

}  // namespace

std::string delimiterOf(const std::string& contentType) {
  std::size_t pos = 0;
  std::string name;
  std::string value;
  // The media type is compared with its letter case, deliberately.
  if (nextParam(contentType, pos, name, value) == kNoToken || name != "multipart/form-data") return "";
  std::string delimiter;
  while (nextParam(contentType, pos, name, value) != kNoToken) {
    if (name == "boundary") delimiter = "\r\n--" + value;
  }
  return delimiter;
}

FormDecoder::FormDecoder(std::string delimiter, std::string field)
    : delimiter_(std::move(delimiter)), field_(std::move(field)) {}

FormDecoder::Step FormDecoder::decode(const char* data, std::size_t size) {
  switch (state_) {
    case State::kBoundaryLine:
      return boundaryLine(data, size);
    case State::kHeaders:
      return headers(data, size);
    default:
      return toDelimiter(data, size);
  }
}

FormDecoder::Step FormDecoder::toDelimiter(const char* data, std::size_t size) {
  if (size < delimiter_.size()) return {Event::kEnd};
  const bool isFile = state_ == State::kFile;
  const char* const found = find(data, size, delimiter_);
  if (found == nullptr) {
    // A delimiter that the end cuts is found with what follows.
    const std::size_t before = size - delimiter_.size() + 1;
    return {Event::kNone, isFile ? before : 0, before};
  }
  const auto before = static_cast<std::size_t>(found - data);
  state_ = State::kBoundaryLine;
  return {isFile ? Event::kFileEnds : Event::kNone, isFile ? before : 0, before + delimiter_.size()};
}

// What follows the delimiter: the mark of the last one, or the rest of its line.
FormDecoder::Step FormDecoder::boundaryLine(const char* data, std::size_t size) {
  if (size > 1 && std::memcmp(data, "--", 2) == 0) return {Event::kEnd};
  const char* const lineFeed = find(data, size, "\n");
  if (lineFeed == nullptr || lineFeed == data + size - 1) return {Event::kEnd};
  state_ = State::kHeaders;
  return {Event::kNone, 0, static_cast<std::size_t>(lineFeed - data) + 1};
}

FormDecoder::Step FormDecoder::headers(const char* data, std::size_t size) {
  const char* const end = find(data, size, "\r\n\r\n");
  if (end == nullptr) return {Event::kEnd};
  const auto length = static_cast<std::size_t>(end - data);
  const bool isFile = isFileOfField(splitPartHeaders(std::string(data, length + 2)), field_);
  state_ = isFile ? State::kFile : State::kOtherPart;
  return {isFile ? Event::kFileBegins : Event::kNone, 0, length + 4};
}
