// Reception of a form: one pass over the body within the connection's buffer.
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "upload/jx_download_server.h"
#include "upload/make_parent_dirs.h"
#include "upload/next_param.h"
#include "upload/part_file.h"
#include "upload/part_headers.h"

namespace {

// Where files are stored: the target name, cut where the number goes.
struct Target {
  explicit Target(const std::string& name)
      : stem(name.substr(0, name.rfind('.'))), extension(name.substr(stem.size())) {}

  std::string numbered(int number) const { return stem + "-" + std::to_string(number) + extension; }
  std::string plain() const { return stem + extension; }

  std::string stem;
  std::string extension;  // with its dot; empty where there is none
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
  Reception(JXDownloadServer& server, const std::string& delimiter, const std::string& field, const Target& target,
            bool multiple)
      : server_(server), delimiter_(delimiter), field_(field), target_(target), multiple_(multiple) {}

  // True when at least one file was stored. The body may not be at its end yet.
  bool run() {
    // The first boundary line has no line break before it: with one it matches the delimiter as all others do.
    std::memcpy(server_.buffer, "\r\n", 2);
    server_.fill = 2;
    while (receivePart()) {
    }
    return stored_;
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
    stored_ = true;  // and stays so when a later file fails, deliberately: something was stored
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
    const std::string path = multiple_ ? target_.numbered(count_++) : target_.plain();
    return makeParentDirs(path) && file.open(path);
  }

  JXDownloadServer& server_;
  const std::string& delimiter_;
  const std::string& field_;
  const Target& target_;
  const bool multiple_;
  int count_ = 0;
  bool stored_ = false;
};

bool JXDownloadServer::receiveMultipart(const std::string& field, const std::string& target, bool multiple) {
  const auto contentType = headers.find("content-type");
  const std::string delimiter = contentType != headers.end() ? delimiterOf(contentType->second) : "";
  const bool stored = !delimiter.empty() && Reception(*this, delimiter, field, Target(target), multiple).run();
  // Whatever came of it, no byte of this body may be left for the next request.
  while (fillBuffer() > 0) consumeBuffer(fill);
  return stored;
}
