// A serial line in memory, without waiting: the host's bytes for one download, and the terminal's answers.
#pragma once

#include <cstring>
#include <string>

#include "serial/conversation.h"

class MemoryLine {
 public:
  explicit MemoryLine(Tessolan::System& system) : conversation_(system) {}

  // Sends `bytes`. Returns what the terminal answers to all that it has until now; nothing once the download has ended.
  std::string exchange(const std::string& bytes) {
    bytes_ += bytes;
    std::string answers;
    while (result_ == tessolan::Conversation::kGoOn) {
      const tessolan::Conversation::Wanted wanted = conversation_.wanted();
      const int got = wanted.isBody ? bodySize(wanted.size) : static_cast<int>(wanted.size);
      const auto size = static_cast<std::size_t>(got);
      if (got == kNotYet || (got > 0 && bytes_.size() - at_ < size)) break;
      if (got > 0) std::memcpy(wanted.place, bytes_.data() + at_, size);
      at_ += got > 0 ? size : wanted.size / kStep * kStep;  // of a body that is too long
      answers += take(got);
    }
    return answers;
  }

  // Fails the reading that is due, after bytes that are not enough for it, which are lost: `got` is what it gives.
  std::string fail(int got) {
    at_ = bytes_.size();
    return take(got);
  }

  // True between records.
  bool isIdle() const { return conversation_.isIdle(); }
  // tessolan::Conversation::kGoOn, or the download's result.
  int result() const { return result_; }
  // The bytes that the terminal has not read.
  std::size_t unread() const { return bytes_.size() - at_; }

 private:
  static constexpr int kNotYet = 0;
  static constexpr std::size_t kStep = tessolan::kNoEnd;

  // The size of the body that lies there, as reading it in steps of three finds it.
  int bodySize(std::size_t capacity) const {
    for (std::size_t size = kStep; size <= capacity; size += kStep) {
      if (bytes_.size() - at_ < size) return kNotYet;
      const char* const step = bytes_.data() + at_ + size - kStep;
      const std::size_t behind = tessolan::bytesBehind(reinterpret_cast<const unsigned char*>(step));
      if (behind != tessolan::kNoEnd) {
        return size + behind <= capacity ? static_cast<int>(size + behind) : Tessolan::kTooLong;
      }
    }
    return Tessolan::kTooLong;
  }

  std::string take(int got) {
    const tessolan::Conversation::Turn turn = conversation_.take(got);
    result_ = turn.result;
    if (turn.reply == tessolan::Reply::kNone) return "";
    if (turn.reply != tessolan::Reply::kParameterRecord) return std::string(1, static_cast<char>(turn.reply));
    unsigned char record[tessolan::kParameterRecordSize];
    tessolan::writeParameterRecord(record);
    return std::string(reinterpret_cast<const char*>(record), sizeof record);
  }

  tessolan::Conversation conversation_;
  std::string bytes_;
  std::size_t at_ = 0;
  int result_ = tessolan::Conversation::kGoOn;
};
