// The terminal's side of the Tessolan download protocol: the host's bytes in, answers and records out. It touches no
// line and no clock, and allocates nothing.
#pragma once

#include <cstddef>

#include "serial/tessolan.h"
#include "serial/wire.h"

namespace tessolan {

// What the host is answered.
enum class Reply : unsigned char {
  kNone = 0,
  kParameterRecord = kSTX,
  kAcknowledge = kACK,
  kRepeat = kNAK,
  kEnd = kEOT
};

constexpr std::size_t kParameterRecordSize = 1 + kParametersSize + 1 + kCheckSize;

// Writes the parameter record, which is what Reply::kParameterRecord stands for, into `record`.
void writeParameterRecord(unsigned char (&record)[kParameterRecordSize]);

// How many bytes follow the latest three of a text record's body, read in steps of three: 0 to 2 where its ETX is among
// them, else kNoEnd.
constexpr std::size_t kNoEnd = 3;
[[nodiscard]] std::size_t bytesBehind(const unsigned char* step);

// One download. Its user reads what is wanted and tells of it, sends what is to be replied, and goes on until the
// result is another than kGoOn.
class Conversation {
 public:
  static constexpr int kGoOn = 1;

  // What is to be read next.
  struct Wanted {
    unsigned char* place;
    std::size_t size;     // exactly so many bytes; of a body at most, up to its ETX and the two bytes behind it
    bool isBody = false;  // of a text record
  };

  // What a reading led to. The reply goes out first; one that cannot be written ends a download that would go on.
  struct Turn {
    int result;  // kGoOn or the download's result
    Reply reply;
  };

  // `system` gets what is received; not owned, outlives this object.
  explicit Conversation(Tessolan::System& system) : system_(system) {}
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;

  // True between records, where the host may be silent for as long as it likes.
  bool isIdle() const { return state_ == State::kIdle; }

  [[nodiscard]] Wanted wanted();

  // `got` is what reading gave: the number of bytes now in their place, less than wanted when the line failed, or a
  // negative result of the download. An exception of the System passes through; the conversation is over then.
  [[nodiscard]] Turn take(int got);

 private:
  enum class State : unsigned char { kIdle, kLetter, kText, kSignal, kHeader, kData };
  struct Command;

  [[nodiscard]] static const Command* findCommand(unsigned char letter);

  [[nodiscard]] Turn takeIdle();
  [[nodiscard]] Turn takeLetter();
  [[nodiscard]] Turn takeHeader();
  [[nodiscard]] int textResult(std::size_t size);
  [[nodiscard]] int signalResult();
  [[nodiscard]] int dataResult();
  [[nodiscard]] Turn answer(int result);

  Tessolan::System& system_;
  const Command* command_ = nullptr;  // of the record under way
  std::size_t dataSize_ = 0;
  int failedRecords_ = 0;
  State state_ = State::kIdle;
  unsigned char record_[1 + kHeaderSize + kLargestData + kCheckSize];  // from its letter on
};

}  // namespace tessolan
