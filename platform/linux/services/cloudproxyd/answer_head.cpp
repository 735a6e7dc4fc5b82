#include "platform/linux/services/cloudproxyd/answer_head.h"

#include "base/text.h"

namespace cloudproxyd {

namespace {

constexpr std::string_view kVersion = "HTTP/1.";
constexpr std::size_t kStatusAt = 9;  // behind "HTTP/1.x "
constexpr std::size_t kStatusEnd = 12;
constexpr int kFirstFinal = 200;

}  // namespace

AnswerHead::State AnswerHead::take(std::string_view bytes) {
  for (const char byte : bytes) {
    if (state_ != State::kIncomplete) break;
    state_ = takeByte(byte);
  }
  return state_;
}

AnswerHead::State AnswerHead::takeByte(char byte) {
  if (++taken_ > kMaxBytes) return State::kMalformed;
  if (byte == '\n') return endLine();
  line_ += byte;
  return State::kIncomplete;
}

AnswerHead::State AnswerHead::endLine() {
  if (!line_.empty() && line_.back() == '\r') line_.pop_back();
  if (status_ == 0) {
    if (!readStatusLine()) return State::kMalformed;
  } else if (line_.empty()) {
    if (status_ >= kFirstFinal) return State::kComplete;
    status_ = 0;
  }
  line_.clear();
  return State::kIncomplete;
}

// "HTTP/1.1 204 No Content"; the blank and the text behind the status may be missing.
bool AnswerHead::readStatusLine() {
  if (line_.size() < kStatusEnd || !base::beginsWith(line_, kVersion) || !base::isDigit(line_[kVersion.size()]))
    return false;
  if (line_[kStatusAt - 1] != ' ' || (line_.size() > kStatusEnd && line_[kStatusEnd] != ' ')) return false;
  status_ = 0;
  for (std::size_t i = kStatusAt; i < kStatusEnd; ++i) {
    if (!base::isDigit(line_[i])) return false;
    status_ = 10 * status_ + (line_[i] - '0');
  }
  reason_ = line_.size() > kStatusEnd ? line_.substr(kStatusEnd + 1) : "";
  return status_ >= 100;
}

}  // namespace cloudproxyd
