#include "serial/conversation.h"

#include <cstdint>
#include <cstring>

#include "serial/crc16.h"

namespace tessolan {

namespace {

constexpr int kFailedRecordLimit = 3;
constexpr int kReservedEnd = -6;  // ends the download as a refusal does; no record leads to it

bool checkValueIs(std::uint16_t crc, const unsigned char* sent) {
  return sent[0] == crc >> 8U && sent[1] == (crc & 0xFFU);
}

std::uint32_t bigEndian(const unsigned char* bytes, std::size_t count) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < count; ++i) value = value << 8U | bytes[i];
  return value;
}

}  // namespace

void writeParameterRecord(unsigned char (&record)[kParameterRecordSize]) {
  constexpr std::size_t kCovered = kParametersSize + 1;  // by the check value: all but STX
  record[0] = kSTX;
  std::memcpy(record + 1, kParameters, kParametersSize);
  record[kCovered] = kETX;
  const std::uint16_t crc = crc16(record + 1, kCovered);
  record[kCovered + 1] = static_cast<unsigned char>(crc >> 8U);
  record[kCovered + 2] = static_cast<unsigned char>(crc & 0xFFU);
}

std::size_t bytesBehind(const unsigned char* step) {
  std::size_t etxAt = 0;
  while (etxAt < kNoEnd && step[etxAt] != kETX) ++etxAt;
  return etxAt;
}

// How the record of one letter is received, and to which operation it goes.
struct Conversation::Command {
  unsigned char letter;
  State form;
  bool (Tessolan::System::*text)(const char*);
  std::size_t textFrom;  // where the text handed on begins
  bool (Tessolan::System::*signal)();
};

const Conversation::Command* Conversation::findCommand(unsigned char letter) {
  using System = Tessolan::System;
  // The seven letters at the end are acknowledged and have no effect.
  static constexpr Command kCommands[] = {
      {'W', State::kHeader, nullptr, 0, nullptr},
      {'O', State::kText, &System::openFile, kNameAt, nullptr},
      {'C', State::kSignal, nullptr, 0, &System::closeFile},
      {'R', State::kText, &System::recordR, 0, nullptr},
      {'M', State::kText, &System::showMessage, 0, nullptr},
      {'S', State::kSignal, nullptr, 0, &System::recordS},
      {'U', State::kSignal, nullptr, 0, &System::recordU},
      {'$', State::kText, nullptr, 0, nullptr},
      {'D', State::kText, nullptr, 0, nullptr},
      {'F', State::kText, nullptr, 0, nullptr},
      {'I', State::kText, nullptr, 0, nullptr},
      {'L', State::kText, nullptr, 0, nullptr},
      {'P', State::kText, nullptr, 0, nullptr},
      {'T', State::kText, nullptr, 0, nullptr},
  };
  for (const Command& command : kCommands) {
    if (command.letter == letter) return &command;
  }
  return nullptr;
}

Conversation::Wanted Conversation::wanted() {
  switch (state_) {
    case State::kText:
      return {record_ + 1, kLargestBody, true};
    case State::kSignal:
      return {record_ + 1, 1 + kCheckSize};
    case State::kHeader:
      return {record_ + 1, kHeaderSize};
    case State::kData:
      return {record_ + 1 + kHeaderSize, dataSize_ + kCheckSize};
    default:
      return {record_, 1};
  }
}

Conversation::Turn Conversation::take(int got) {
  const State state = state_;
  const bool isText = state == State::kText;
  const bool isWhole = isText ? got > 0 : got == static_cast<int>(wanted().size);
  if (!isWhole) {
    // Outside a record nothing is answered, whatever the failure was.
    if (state == State::kIdle || state == State::kLetter) return {Tessolan::kFailed, Reply::kNone};
    return answer(got < 0 ? got : Tessolan::kFailed);
  }
  switch (state) {
    case State::kIdle:
      return takeIdle();
    case State::kLetter:
      return takeLetter();
    case State::kHeader:
      return takeHeader();
    case State::kText:
      return answer(textResult(static_cast<std::size_t>(got)));
    case State::kSignal:
      return answer(signalResult());
    default:
      return answer(dataResult());
  }
}

Conversation::Turn Conversation::takeIdle() {
  switch (record_[0]) {
    case kENQ:
    case kNAK:
      return {kGoOn, Reply::kParameterRecord};
    case kEOT:
      return {Tessolan::kDone, Reply::kEnd};
    case kSTX:
      state_ = State::kLetter;
      return {kGoOn, Reply::kNone};
    default:
      return {kGoOn, Reply::kNone};
  }
}

Conversation::Turn Conversation::takeLetter() {
  command_ = findCommand(record_[0]);
  // Nothing behind an unknown letter is read: it goes by as bytes between records.
  if (command_ == nullptr) return answer(Tessolan::kFailed);
  state_ = command_->form;
  return {kGoOn, Reply::kNone};
}

Conversation::Turn Conversation::takeHeader() {
  dataSize_ = bigEndian(record_ + 1, 2);
  if (dataSize_ > kLargestData) return answer(Tessolan::kTooLong);
  state_ = State::kData;
  return {kGoOn, Reply::kNone};
}

int Conversation::textResult(std::size_t size) {
  const std::size_t covered = 1 + size - kCheckSize;  // from the letter through the ETX
  if (!checkValueIs(crc16(record_, covered), record_ + covered)) return Tessolan::kFailed;
  unsigned char* const etx = record_ + covered - 1;
  *etx = 0;
  if (command_->text == nullptr) return Tessolan::kDone;
  const char* text = reinterpret_cast<const char*>(record_ + 1 + command_->textFrom);
  // A text that ends before the part that is handed on begins counts as an empty one.
  if (1 + command_->textFrom > covered - 1) text = reinterpret_cast<const char*>(etx);
  return (system_.*command_->text)(text) ? Tessolan::kDone : Tessolan::kRefused;
}

int Conversation::signalResult() {
  if (record_[1] != kETX || !checkValueIs(crc16(record_, 2), record_ + 2)) return Tessolan::kFailed;
  return (system_.*command_->signal)() ? Tessolan::kDone : Tessolan::kRefused;
}

int Conversation::dataResult() {
  const unsigned char* const data = record_ + 1 + kHeaderSize;
  if (!checkValueIs(crc16(record_, 1 + kHeaderSize + dataSize_), data + dataSize_)) return Tessolan::kFailed;
  const std::uint32_t offset = bigEndian(record_ + 3, 4);
  const bool accepted = system_.writeBlock(offset, data, static_cast<std::uint32_t>(dataSize_));
  return accepted ? Tessolan::kDone : Tessolan::kRefused;
}

// Ends the record.
Conversation::Turn Conversation::answer(int result) {
  state_ = State::kIdle;
  switch (result) {
    case Tessolan::kDone:
      failedRecords_ = 0;
      return {kGoOn, Reply::kAcknowledge};
    case Tessolan::kFailed:
      if (++failedRecords_ < kFailedRecordLimit) return {kGoOn, Reply::kRepeat};
      return {result, Reply::kEnd};
    case Tessolan::kAborted:
    case Tessolan::kTooLong:
    case Tessolan::kRefused:
    case kReservedEnd:
      return {result, Reply::kEnd};
    default:
      return {kGoOn, Reply::kNone};
  }
}

}  // namespace tessolan
