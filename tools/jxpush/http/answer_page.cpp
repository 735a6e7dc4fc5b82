#include "tools/jxpush/http/answer_page.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "base/text.h"

namespace jxpush {

namespace {

constexpr const char* kBegin = "<!DOCTYPE html>\n<html>\n<body>\n<form action='/' method='GET'>\n";
constexpr const char* kEnd = "<input type='submit' value='OK'>\n</form>\n</body>\n</html>\n";
constexpr const char* kStored = "Upload successful<br>\n";
constexpr const char* kFailed = "Upload failed<br>\n";
constexpr const char* kFormPage =
    "<!DOCTYPE html>\n"
    "<html>\n"
    "<body>\n"
    "<form action='upload' method='post' enctype='multipart/form-data'>\n"
    "  <h1>JX application file upload</h1>\n"
    "  Filename: <input type='file' name='upload' multiple><br>\n"
    "  <input type='submit' value='Upload file'>\n"
    "</form><br>\n"
    "Certificates on terminal: <a href='certificates.tar'>certificates.tar</a>\n"
    "</body>\n"
    "</html>\n";

struct Entity {
  const char* html;
  char character;
};

// All that the terminal writes.
constexpr Entity kEntities[] = {{"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}};

LogLine::Kind kindOf(const std::string& text) {
  if (base::beginsWith(text, "Error:")) return LogLine::Kind::Error;
  if (base::beginsWith(text, "Warning:")) return LogLine::Kind::Warning;
  if (base::beginsWith(text, "List of installed applications")) return LogLine::Kind::List;
  return LogLine::Kind::Plain;
}

class LogParser {
 public:
  explicit LogParser(const std::string& html) : html_(html) {}

  // False for what the terminal does not write.
  bool run() {
    while (at_ < html_.size()) {
      if (!takePiece()) return false;
    }
    endLine(false);
    return !inSpan();
  }

  std::vector<LogLine> lines;

 private:
  enum class Span { None, Red, Green };

  bool inSpan() const { return span_ != Span::None; }

  bool take(const char* text) {
    const std::size_t size = std::strlen(text);
    if (html_.compare(at_, size, text) != 0) return false;
    at_ += size;
    return true;
  }

  bool takePiece() {
    if (html_[at_] == '&') return takeEntity();
    if (html_[at_] == '<') return takeTag();
    // None of these is left over by the terminal.
    if (std::strchr(">\"'\n\r\t", html_[at_]) != nullptr) return false;
    text_ += html_[at_++];
    return true;
  }

  bool takeEntity() {
    const auto* const found = std::find_if(std::begin(kEntities), std::end(kEntities),
                                           [this](const Entity& entity) { return take(entity.html); });
    if (found == std::end(kEntities)) return false;
    text_ += found->character;
    return true;
  }

  bool takeTag() {
    if (take("<br>")) {
      // A mark covers one message, which says at its beginning why it is marked.
      return endLine(true);
    }
    if (take("</span>")) return closeSpan();
    if (take("<span style='color:#f00'>")) return openSpan(Span::Red);
    return take("<span style='color:#0a0'>") && openSpan(Span::Green);
  }

  bool openSpan(Span span) {
    if (inSpan()) return false;
    endLine(false);
    span_ = span;
    spanKind_ = LogLine::Kind::Plain;
    spanBegins_ = true;
    return true;
  }

  bool closeSpan() {
    if (!inSpan() || !endLine(spanBegins_)) return false;
    span_ = Span::None;
    return true;
  }

  // Ends a line that has text, or any when `always`. False when a mark does not fit its first line.
  bool endLine(bool always) {
    if (text_.empty() && !always) return true;
    const LogLine::Kind kind = kindOf(text_);
    if (spanBegins_ && !fits(kind)) return false;
    if (spanBegins_) spanKind_ = kind;
    spanBegins_ = false;
    lines.push_back({inSpan() ? spanKind_ : kind, text_});
    text_.clear();
    return true;
  }

  bool fits(LogLine::Kind kind) const {
    if (span_ == Span::Green) return kind == LogLine::Kind::List;
    return kind == LogLine::Kind::Error || kind == LogLine::Kind::Warning;
  }

  const std::string& html_;
  std::size_t at_ = 0;
  std::string text_;  // of the line under way
  Span span_ = Span::None;
  LogLine::Kind spanKind_ = LogLine::Kind::Plain;
  bool spanBegins_ = false;  // its first line is under way
};

}  // namespace

std::optional<AnswerPage> parseAnswerPage(const std::string& html) {
  const std::size_t around = std::strlen(kBegin) + std::strlen(kEnd);
  if (html.size() < around || !base::beginsWith(html, kBegin) || !base::endsWith(html, kEnd)) return std::nullopt;
  const std::string inner = html.substr(std::strlen(kBegin), html.size() - around);
  AnswerPage page;
  if (inner == kFailed) return page;
  if (!base::beginsWith(inner, kStored)) return std::nullopt;
  page.stored = true;
  const std::string log = inner.substr(std::strlen(kStored));
  LogParser parser(log);
  if (!parser.run()) return std::nullopt;
  page.log = std::move(parser.lines);
  return page;
}

bool isFormPage(const std::string& html) { return html == kFormPage; }

}  // namespace jxpush
