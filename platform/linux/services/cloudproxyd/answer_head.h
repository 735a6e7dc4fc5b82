// The head of an HTTP answer.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace cloudproxyd {

// Takes the bytes of a connection as they come, up to the end of the final answer's head: its status line and fields.
// Answers with a status of 100 to 199 stand before the final one and are passed over. Lines end with a line feed,
// before which a carriage return is dropped.
class AnswerHead {
 public:
  // All heads together may have this many bytes.
  static constexpr std::size_t kMaxBytes = std::size_t{64} * 1024;

  enum class State {
    kIncomplete,  // more bytes are needed
    kComplete,    // status() and reason() are those of the final answer
    kMalformed    // this is no HTTP answer, or one too long
  };

  // Takes `bytes`; those behind the head do not count. Once the state is not kIncomplete it stays.
  [[nodiscard]] State take(std::string_view bytes);

  int status() const { return status_; }                 // 200 to 999
  const std::string& reason() const { return reason_; }  // as it was sent; may be empty

 private:
  [[nodiscard]] State takeByte(char byte);
  [[nodiscard]] State endLine();
  [[nodiscard]] bool readStatusLine();

  State state_ = State::kIncomplete;
  std::size_t taken_ = 0;
  std::string line_;
  int status_ = 0;  // 0: a status line is to come
  std::string reason_;
};

}  // namespace cloudproxyd
