#include "tools/jxpush/http/multipart_body.h"

#include <random>

#include "base/text.h"

namespace jxpush {

namespace {

constexpr int kRandomDigits = 48;
constexpr const char* kHexDigits = "0123456789ABCDEF";

// As the value of a quoted parameter. A control character would end the line.
std::string quoted(const std::string& name) {
  std::string text = "\"";
  for (const char c : name) {
    if (base::isControl(c)) {
      const auto byte = static_cast<unsigned char>(c);
      text += '%';
      text += kHexDigits[byte >> 4U];
      text += kHexDigits[byte & 0xFU];
      continue;
    }
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
  return text + '"';
}

}  // namespace

std::string randomBoundary() {
  std::random_device device;
  std::string boundary = "jxpush-";
  for (int i = 0; i < kRandomDigits; ++i) boundary += kHexDigits[device() & 0xFU];
  return boundary;
}

MultipartBody::MultipartBody(const std::vector<InputFile>& files, std::string boundary)
    : files_(files), boundary_(std::move(boundary)) {}

std::string MultipartBody::head(std::size_t index) const {
  return "--" + boundary_ +
         "\r\nContent-Disposition: form-data; name=\"upload\"; filename=" + quoted(files_[index].name()) +
         "\r\nContent-Type: application/octet-stream\r\n\r\n";
}

std::string MultipartBody::tail(std::size_t index) const {
  return "\r\n" + (index + 1 < files_.size() ? head(index + 1) : "--" + boundary_ + "--\r\n");
}

std::uint64_t MultipartBody::size() const {
  std::uint64_t total = files_.empty() ? 0 : head(0).size();
  for (std::size_t i = 0; i < files_.size(); ++i) total += files_[i].size() + tail(i).size();
  return total;
}

int MultipartBody::announcedLength() const {
  const std::uint64_t total = size();
  return total <= INT32_MAX ? static_cast<int>(total) : -1;
}

}  // namespace jxpush
