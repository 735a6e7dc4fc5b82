// Reception of a form: one pass over the body within the connection's buffer.
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "http/next_param.h"
#include "http/part_headers.h"
#include "upload/jx_download_server.h"
#include "upload/make_parent_dirs.h"
#include "upload/part_file.h"

namespace {

// Where files are stored: the target name, with a number before its last dot where there may be several.
class Target {
 public:
  Target(const std::string& name, bool multiple)
      : stem_(name.substr(0, name.rfind('.'))), extension_(name.substr(stem_.size())), multiple_(multiple) {
    path_.reserve(name.size() + kLongestSuffix);
  }

  // Valid until the next call. Allocates nothing.
  const std::string& path(int number) {
    std::array<char, kLongestSuffix + 1> suffix{};
    if (multiple_) std::snprintf(suffix.data(), suffix.size(), "-%d", number);
    return path_.assign(stem_).append(suffix.data()).append(extension_);
  }

 private:
  static constexpr std::size_t kLongestSuffix = 11;  // "-2147483647"

  std::string stem_;
  std::string extension_;  // with its dot; empty where there is none
  bool multiple_;
  std::string path_;
};

// The delimiter of a form with this content type; empty when it is no form or names no boundary.
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

// memmem, of the C library, and not a loop over memchr: on a body of line breaks, or of delimiters less their last
// byte, a search that stops at each candidate falls to a fraction of its speed.
const char* find(const char* data, std::size_t size, const std::string& text) {
  return static_cast<const char*>(memmem(data, size, text.data(), text.size()));
}

}  // namespace

// One reception. What it looks at is always the front of the server's buffer.
class JXDownloadServer::Reception {
 public:
  Reception(JXDownloadServer& server, std::string delimiter, std::string field, const std::string& target,
            bool multiple)
      : server_(server),
        delimiter_(std::move(delimiter)),
        field_(std::move(field)),
        target_(target, multiple),
        multiple_(multiple) {}

  // Receives what the form holds for the field. The body may not be at its end then.
  void run() {
    if (delimiter_.empty()) return;
    // The first boundary line has no line break before it: with one it matches the delimiter as all others do.
    std::memcpy(server_.buffer, "\r\n", 2);
    server_.fill = 2;
    while (receivePart()) {
    }
  }

  bool hasStored() const { return stored_ > 0; }

  // For a request that ends without an answer: nobody would know what became of its files.
  void removeFiles() {
    for (int number = 0; number < stored_; ++number) std::remove(target_.path(number).c_str());
  }

 private:
  // The bytes buffered after reading on; 0 when the read failed, which ends the reception whatever is buffered.
  std::size_t readOn() {
    const int count = server_.fillBuffer();
    return count > 0 ? static_cast<std::size_t>(count) : 0;
  }

  void drop(std::size_t count) { server_.consumeBuffer(static_cast<int>(count)); }

  // False when nothing more is to be received.
  bool receivePart() {
    PartFile none;
    std::vector<std::string> headers;
    if (!moveToDelimiter(none) || !skipBoundaryLine() || !takeHeaders(headers)) return false;
    PartFile file;
    if (isFileOfField(headers, field_) && !openNext(file)) return false;
    if (!moveToDelimiter(file)) return false;
    if (!file.isOpen()) return true;
    if (!file.keep()) return false;
    ++stored_;  // and counts also when a later file fails, deliberately: something was stored
    return multiple_;
  }

  // Moves what is before the next delimiter into `file`, or drops it when that is not open. False when the body ended
  // before, or the file failed.
  bool moveToDelimiter(PartFile& file) {
    for (;;) {
      const std::size_t size = readOn();
      if (size < delimiter_.size() || file.failed()) return false;
      const char* const found = find(server_.buffer, size, delimiter_);
      // A delimiter that the buffer's end cuts is found on the next pass.
      const std::size_t count =
          found != nullptr ? static_cast<std::size_t>(found - server_.buffer) : size - delimiter_.size() + 1;
      file.write(server_.buffer, count);
      drop(count);
      if (found != nullptr) return true;
    }
  }

  // False at the closing boundary, and where no part follows.
  bool skipBoundaryLine() {
    drop(delimiter_.size());
    const std::size_t size = readOn();
    if (size > 1 && std::memcmp(server_.buffer, "--", 2) == 0) return false;
    const char* const lineFeed = find(server_.buffer, size, "\n");
    if (lineFeed == nullptr || lineFeed == server_.buffer + size - 1) return false;
    drop(static_cast<std::size_t>(lineFeed - server_.buffer) + 1);
    return true;
  }

  // False when the headers do not fit into the buffer or are cut.
  bool takeHeaders(std::vector<std::string>& headers) {
    const std::size_t size = readOn();
    const char* const end = find(server_.buffer, size, "\r\n\r\n");
    if (end == nullptr) return false;
    const auto length = static_cast<std::size_t>(end - server_.buffer);
    headers = splitPartHeaders(std::string(server_.buffer, length + 2));
    drop(length + 4);
    return true;
  }

  bool openNext(PartFile& file) {
    const std::string& path = target_.path(stored_);
    return makeParentDirs(path) && file.open(path);
  }

  JXDownloadServer& server_;
  const std::string delimiter_;
  const std::string field_;
  Target target_;
  const bool multiple_;
  int stored_ = 0;  // files; the next one's number too, since one that cannot be stored ends the reception
};

bool JXDownloadServer::receiveMultipart(const std::string& field, const std::string& target, bool multiple) {
  const auto contentType = headers.find("content-type");
  Reception reception(*this, contentType != headers.end() ? delimiterOf(contentType->second) : "", field, target,
                      multiple);
  try {
    reception.run();
    // Whatever came of it, no byte of this body may be left for the next request.
    while (fillBuffer() > 0) consumeBuffer(fill);
  } catch (...) {
    reception.removeFiles();
    throw;
  }
  return reception.hasStored();
}
