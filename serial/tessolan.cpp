#include "serial/tessolan.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "serial/crc16.h"
#include "serial/wire.h"

using tessolan::kCheckSize;
using tessolan::kETX;
using tessolan::kHeaderSize;
using tessolan::kLargestBody;
using tessolan::kLargestData;

namespace {

constexpr int kIdleWaitMs = 500;
constexpr int kFailedRecordLimit = 3;
constexpr int kGoOn = 1;          // wait for the host's next byte
constexpr int kReservedEnd = -6;  // ends the download as a refusal does; no handler produces it

// Closes the device on every way out of a download.
class DeviceCloser {
 public:
  explicit DeviceCloser(std::int32_t& fd) : fd_(fd) {}
  DeviceCloser(const DeviceCloser&) = delete;
  DeviceCloser& operator=(const DeviceCloser&) = delete;
  ~DeviceCloser() {
    close(fd_);
    fd_ = -1;
  }

 private:
  std::int32_t& fd_;
};

bool checkValueIs(std::uint16_t crc, const unsigned char* sent) {
  return sent[0] == crc >> 8U && sent[1] == (crc & 0xFFU);
}

std::uint32_t bigEndian(const unsigned char* bytes, std::size_t count) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < count; ++i) value = value << 8U | bytes[i];
  return value;
}

// What a handler returns for a read that did not give all its bytes.
int readFailure(int got) { return got < 0 ? got : Tessolan::kFailed; }

}  // namespace

// How the record of one letter is received, and to which operation it goes.
struct Tessolan::Command {
  unsigned char letter;
  int (Tessolan::*receive)(const Command&);
  bool (System::*text)(const char*);
  std::size_t textFrom;  // where the text handed on begins
  bool (System::*signal)();
};

const Tessolan::Command* Tessolan::findCommand(unsigned char letter) {
  // The seven letters at the end are acknowledged and have no effect.
  static constexpr Command kCommands[] = {
      {'W', &Tessolan::receiveData, nullptr, 0, nullptr},
      {'O', &Tessolan::receiveText, &System::openFile, tessolan::kNameAt, nullptr},
      {'C', &Tessolan::receiveSignal, nullptr, 0, &System::closeFile},
      {'R', &Tessolan::receiveText, &System::recordR, 0, nullptr},
      {'M', &Tessolan::receiveText, &System::showMessage, 0, nullptr},
      {'S', &Tessolan::receiveSignal, nullptr, 0, &System::recordS},
      {'U', &Tessolan::receiveSignal, nullptr, 0, &System::recordU},
      {'$', &Tessolan::receiveText, nullptr, 0, nullptr},
      {'D', &Tessolan::receiveText, nullptr, 0, nullptr},
      {'F', &Tessolan::receiveText, nullptr, 0, nullptr},
      {'I', &Tessolan::receiveText, nullptr, 0, nullptr},
      {'L', &Tessolan::receiveText, nullptr, 0, nullptr},
      {'P', &Tessolan::receiveText, nullptr, 0, nullptr},
      {'T', &Tessolan::receiveText, nullptr, 0, nullptr},
  };
  for (const Command& command : kCommands) {
    if (command.letter == letter) return &command;
  }
  return nullptr;
}

Tessolan::Tessolan(System* callbacks) : system(callbacks) {}

Tessolan::~Tessolan() = default;

void Tessolan::requestAbort() { abortFlag.store(1, std::memory_order_relaxed); }

int Tessolan::receive(const char* device) {
  // Deliberately without further flags: the line blocks, and may become the controlling terminal.
  fd = open(device, O_RDWR);
  if (fd < 0) return kNoDevice;
  const DeviceCloser closer(fd);
  abortFlag.store(0, std::memory_order_relaxed);
  if (setupPort(115200, 8, 'N', 1) == -1) return kNoDevice;
  return serveHost();
}

int Tessolan::serveHost() {
  int failedRecords = 0;
  int result = kGoOn;
  while (result == kGoOn) {
    const int ready = waitForInput(kIdleWaitMs);
    if (ready < 0) return ready;
    if (ready == 0) continue;
    unsigned char byte = 0;
    if (readBytes(&byte, 1) != 1) return kFailed;
    result = actOn(byte, failedRecords);
  }
  return result;
}

int Tessolan::actOn(unsigned char byte, int& failedRecords) {
  unsigned char letter = 0;
  switch (byte) {
    case tessolan::kENQ:
    case tessolan::kNAK:
      return sendParameters() ? kGoOn : kFailed;
    case tessolan::kEOT:
      sendByte(tessolan::kEOT);
      return kDone;
    case tessolan::kSTX:
      if (readBytes(&letter, 1) != 1) return kFailed;
      return answer(receiveRecord(letter), failedRecords);
    default:
      return kGoOn;
  }
}

int Tessolan::receiveRecord(unsigned char letter) {
  const Command* const command = findCommand(letter);
  // Nothing behind an unknown letter is read: it goes by as bytes between records.
  return command == nullptr ? kFailed : (this->*command->receive)(*command);
}

int Tessolan::answer(int result, int& failedRecords) {
  switch (result) {
    case kDone:
      if (!sendByte(tessolan::kACK)) return kFailed;
      failedRecords = 0;
      return kGoOn;
    case kFailed:
      if (++failedRecords < kFailedRecordLimit) return sendByte(tessolan::kNAK) ? kGoOn : kFailed;
      sendByte(tessolan::kEOT);
      return kFailed;
    case kAborted:
    case kTooLong:
    case kRefused:
    case kReservedEnd:
      sendByte(tessolan::kEOT);
      return result;
    default:
      return kGoOn;
  }
}

int Tessolan::receiveText(const Command& command) {
  unsigned char record[1 + kLargestBody] = {command.letter};
  unsigned char* const body = record + 1;
  const int got = readRecordBody(body, kLargestBody);
  if (got <= 0) return readFailure(got);
  const std::size_t etxAt = static_cast<std::size_t>(got) - kCheckSize - 1;
  if (!checkValueIs(crc16(record, 1 + etxAt + 1), body + etxAt + 1)) return kFailed;
  body[etxAt] = 0;
  if (command.text == nullptr) return kDone;
  // A text that ends before the part that is handed on begins counts as an empty one.
  const std::size_t from = etxAt < command.textFrom ? etxAt : command.textFrom;
  const char* const text = reinterpret_cast<const char*>(body + from);
  return (system->*command.text)(text) ? kDone : kRefused;
}

int Tessolan::receiveSignal(const Command& command) {
  unsigned char body[1 + kCheckSize];
  const int got = readBytes(body, sizeof body);
  if (got != static_cast<int>(sizeof body)) return readFailure(got);
  if (body[0] != kETX) return kFailed;
  if (!checkValueIs(crc16(body, 1, crc16(&command.letter, 1)), body + 1)) return kFailed;
  return (system->*command.signal)() ? kDone : kRefused;
}

int Tessolan::receiveData(const Command& command) {
  unsigned char record[kHeaderSize + kLargestData + kCheckSize];
  unsigned char* const data = record + kHeaderSize;
  int got = readBytes(record, kHeaderSize);
  if (got != static_cast<int>(kHeaderSize)) return readFailure(got);
  const std::uint32_t length = bigEndian(record, 2);
  if (length > kLargestData) return kTooLong;
  got = readBytes(data, length + kCheckSize);
  if (got != static_cast<int>(length + kCheckSize)) return readFailure(got);
  const std::uint16_t crc = crc16(record, kHeaderSize + length, crc16(&command.letter, 1));
  if (!checkValueIs(crc, data + length)) return kFailed;
  return system->writeBlock(bigEndian(record + 2, 4), data, length) ? kDone : kRefused;
}

bool Tessolan::sendByte(unsigned char byte) { return writeBytes(&byte, 1) == 1; }

bool Tessolan::sendParameters() {
  constexpr std::size_t kSize = 1 + tessolan::kParametersSize + 1;
  unsigned char record[kSize] = {tessolan::kSTX};
  std::memcpy(record + 1, tessolan::kParameters, tessolan::kParametersSize);
  record[kSize - 1] = kETX;
  const std::uint16_t crc = crc16(record + 1, kSize - 1);
  const unsigned char check[kCheckSize] = {static_cast<unsigned char>(crc >> 8U),
                                           static_cast<unsigned char>(crc & 0xFFU)};
  if (writeBytes(record, kSize) != static_cast<int>(kSize)) return false;
  return writeBytes(check, kCheckSize) == static_cast<int>(kCheckSize);
}
