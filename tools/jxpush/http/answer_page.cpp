#include "tools/jxpush/http/answer_page.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "base/text.h"
#include "upload/upload_pages.h"

namespace jxpush {

namespace {

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
  constexpr std::string_view kBegin = kUploadResultBegin;
  constexpr std::string_view kEnd = kUploadResultEnd;
  const std::size_t around = kBegin.size() + kEnd.size();
  if (html.size() < around || !base::beginsWith(html, kBegin) || !base::endsWith(html, kEnd)) return std::nullopt;
  const std::string inner = html.substr(kBegin.size(), html.size() - around);
  AnswerPage page;
  if (inner == kUploadFailed) return page;
  if (!base::beginsWith(inner, kUploadSuccessful)) return std::nullopt;
  page.stored = true;
  const std::string log = inner.substr(std::strlen(kUploadSuccessful));
  LogParser parser(log);
  if (!parser.run()) return std::nullopt;
  page.log = std::move(parser.lines);
  return page;
}

bool isFormPage(const std::string& html) { return html == kUploadForm; }

}  // namespace jxpush
