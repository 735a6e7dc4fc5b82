#include "tools/jxpush/http/target.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "http/status_text.h"
#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/http/answer_page.h"
#include "tools/jxpush/http/multipart_body.h"

namespace jxpush {

namespace {

constexpr std::size_t kPieceSize = 65536;
constexpr std::size_t kLargestPage = std::size_t{16} << 20U;
constexpr int kOk = 200;

class Upload {
 public:
  Upload(const HttpConnection& connection, const std::vector<InputFile>& files, Observer& observer)
      : address_(connection.address.text()),
        files_(files),
        observer_(observer),
        body_(files, randomBoundary()),
        exchange_(connection) {}

  AnswerPage run() {
    try {
      sendAll();
    } catch (const Problem& problem) {
      if (problem.code() != ExitCode::kInput) throw;
      throw Problem(problem.code(), problem.what() + ("; the terminal: " + consequence()));
    }
    awaitArrival();
    return readAnswer();
  }

 private:
  // Returns early when the terminal has begun to answer.
  void sendAll() {
    if (!exchange_.begin(zorhtml::HttpMethod::Post, "/upload", body_.announcedLength(), body_.contentType())) {
      failLost();
    }
    writeText(body_.head(0));
    for (std::size_t i = 0; i < files_.size() && !answering(); ++i) sendFile(i);
    if (answering()) return;
    if (!exchange_.finishBody() || !exchange_.flush()) failLost();
    sentAll_ = !answering();
  }

  bool answering() const { return exchange_.state().answering; }

  void sendFile(std::size_t index) {
    const InputFile& file = files_[index];
    observer_.fileBegins(file);
    std::vector<char> piece(static_cast<std::size_t>(std::min<std::uint64_t>(kPieceSize, file.size())));
    for (std::uint64_t at = 0; at < file.size() && !answering();) {
      const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), file.size() - at));
      file.read(at, piece.data(), size);
      if (!exchange_.writeBody(piece.data(), static_cast<int>(size))) failLost();
      at += size;
      showArrived(at);
    }
    if (answering()) return;
    // Before the boundary, without which the terminal drops what it has of the file.
    file.checkUnchanged();
    const bool last = index + 1 == files_.size();
    if (!last) observer_.acknowledged(file.size());
    wholeFiles_ = index + 1;
    writeText(body_.tail(index));
  }

  void writeText(const std::string& text) {
    if (!exchange_.writeBody(text)) failLost();
  }

  // `sent` bytes of the present file, less what is still on its way.
  void showArrived(std::uint64_t sent) {
    const std::uint64_t underWay = exchange_.stream() == nullptr ? 0 : exchange_.stream()->unacknowledged();
    if (underWay < sent) observer_.acknowledged(sent - underWay);
  }

  // Until the terminal's system has everything, so that "installing" is not said before.
  void awaitArrival() {
    if (!sentAll_) return;
    TerminalStream* const stream = exchange_.stream();
    const std::uint64_t size = files_.back().size();
    if (!stream->waitUntilArrived([this, size] { showArrived(size); })) failLost();
    observer_.acknowledged(size);
    observer_.installing();
  }

  AnswerPage readAnswer() {
    const AnswerHead head = exchange_.readHead();
    if (exchange_.state().end != StreamState::End::None) failLost();
    if (head.status == 0) failForeign("its answer is not HTTP");
    if (head.status != kOk) {
      throw Problem(ExitCode::kGaveUp,
                    address_ + " refused the upload: " + std::to_string(head.status) + " (" +
                        zorhtml::statusText(head.status) + ")",
                    "refused")
          .forGood();
    }
    std::string html;
    const bool read = exchange_.readContent(html, kLargestPage);
    if (exchange_.state().end != StreamState::End::None) failLost();
    const std::optional<AnswerPage> page = read ? parseAnswerPage(html) : std::nullopt;
    if (!page) failForeign("its answer is not a terminal's page");
    if (!page->stored) {
      throw Problem(ExitCode::kGaveUp, "the terminal refused the upload: it could not store the first file", "refused")
          .forGood();
    }
    if (!sentAll_)
      throw Problem(ExitCode::kUnknown, "the terminal answered before it had everything; " + consequence());
    return *page;
  }

  std::string consequence() const {
    if (wholeFiles_ == 0) return "it installs nothing";
    if (sentAll_) return "it had everything, and may have installed it or may be installing it now";
    return "of " + std::to_string(files_.size()) + " files it may have " + std::to_string(wholeFiles_) +
           " whole, and may install " + (wholeFiles_ == 1 ? "it" : "them");
  }

  [[noreturn]] void failLost() {
    const std::string message = exchange_.stateText() + "; " + consequence();
    if (exchange_.state().end == StreamState::End::Interrupted) throw Problem(ExitCode::kInterrupted, message);
    if (wholeFiles_ == 0) throw Problem(ExitCode::kNoPort, message, "connection-lost");
    throw Problem(ExitCode::kUnknown, message);
  }

  [[noreturn]] void failForeign(const std::string& reason) const {
    throw Problem(ExitCode::kGaveUp, address_ + " is not a terminal's upload server: " + reason, "not-a-terminal")
        .forGood();
  }

  const std::string address_;
  const std::vector<InputFile>& files_;
  Observer& observer_;
  const MultipartBody body_;
  HttpExchange exchange_;
  std::size_t wholeFiles_ = 0;  // which the terminal may have whole
  bool sentAll_ = false;
};

}  // namespace

HttpTarget::HttpTarget(HttpAddress address, const TargetOptions& options)
    : connection_{std::move(address), options.waitSeconds, options.waitForDoor, options.silenceSeconds,
                  options.stopFd} {}

void HttpTarget::check(const std::vector<InputFile>& /*files*/) {}

void HttpTarget::send(const std::vector<InputFile>& files, Observer& observer, Outcome& outcome) {
  observer.waiting("a connection to " + connection_.address.text());
  outcome.log = Upload(connection_, files, observer).run().log;
}

}  // namespace jxpush
