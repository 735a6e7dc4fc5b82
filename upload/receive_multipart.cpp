// Reception of a form: one pass over the body within the connection's buffer.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>

#include "upload/form_decoder.h"
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
  static constexpr std::size_t kLongestSuffix = 12;  // of any int: "--2147483648"

  std::string stem_;
  std::string extension_;  // with its dot; empty where there is none
  bool multiple_;
  std::string path_;
};

}  // namespace

// One reception. What it looks at is always the front of the server's buffer.
class JXDownloadServer::Reception {
 public:
  Reception(JXDownloadServer& server, const std::string& delimiter, const std::string& field, const std::string& target,
            bool multiple)
      : server_(server), decoder_(delimiter, field), target_(target, multiple), multiple_(multiple) {}

  // Receives what the form holds for the field. The body may not be at its end then.
  void run() {
    // The first boundary line has no line break before it: with one it matches the delimiter as all others do.
    std::memcpy(server_.buffer, "\r\n", 2);
    server_.fill = 2;
    while (step()) {
    }
    file_.discard();
  }

  bool hasStored() const { return stored_ > 0; }

  // For a request that ends without an answer: nobody would know what became of its files.
  void removeFiles() {
    for (int number = 0; number < stored_; ++number) std::remove(target_.path(number).c_str());
  }

 private:
  // False when nothing more is to be received; a file that has begun is then not whole.
  bool step() {
    const int count = server_.fillBuffer();
    if (file_.failed()) return false;
    // A read that failed ends the reception, whatever is buffered.
    const FormDecoder::Step step = decoder_.decode(server_.buffer, static_cast<std::size_t>(std::max(count, 0)));
    file_.write(server_.buffer, step.content);
    server_.consumeBuffer(static_cast<int>(step.used));
    switch (step.event) {
      case FormDecoder::Event::kFileBegins:
        return openNext();
      case FormDecoder::Event::kFileEnds:
        if (!file_.keep()) return false;
        ++stored_;  // and counts also when a later file fails, deliberately: something was stored
        return multiple_;
      case FormDecoder::Event::kEnd:
        return false;
      default:
        return true;
    }
  }

  bool openNext() {
    const std::string& path = target_.path(stored_);
    return makeParentDirs(path) && file_.open(path);
  }

  JXDownloadServer& server_;
  FormDecoder decoder_;
  Target target_;
  PartFile file_;
  const bool multiple_;
  int stored_ = 0;  // files; the next one's number too, since one that cannot be stored ends the reception
};

bool JXDownloadServer::receiveMultipart(const std::string& field, const std::string& target, bool multiple) {
  const auto contentType = headers.find("content-type");
  const std::string delimiter = contentType != headers.end() ? delimiterOf(contentType->second) : "";
  Reception reception(*this, delimiter, field, target, multiple);
  try {
    if (!delimiter.empty()) reception.run();
    // Whatever came of it, no byte of this body may be left for the next request.
    while (fillBuffer() > 0) consumeBuffer(fill);
  } catch (...) {
    reception.removeFiles();
    throw;
  }
  return reception.hasStored();
}
