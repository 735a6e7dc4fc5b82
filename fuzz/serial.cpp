// Any bytes on the serial line, with check values that are right or not: the terminal's side of the protocol ends, or
// waits for the host's next byte, and what it takes for a record stands among the bytes. The first byte says whether
// check values are set right and what follows the last byte, the second which record is refused.
#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz/input.h"
#include "serial/crc16.h"
#include "tests/support/memory_line.h"

namespace {

// The length of the record's part under the check value, from its letter on; 0 where it is not whole.
std::size_t checkedLength(const std::string& bytes, std::size_t letterAt) {
  if (bytes[letterAt] != 'W') {
    const std::size_t etxAt = bytes.find(static_cast<char>(tessolan::kETX), letterAt + 1);
    return etxAt == std::string::npos ? 0 : etxAt + 1 - letterAt;
  }
  if (letterAt + 2 >= bytes.size()) return 0;
  const auto high = static_cast<unsigned char>(bytes[letterAt + 1]);
  const auto low = static_cast<unsigned char>(bytes[letterAt + 2]);
  return 1 + tessolan::kHeaderSize + high * std::size_t{256} + low;
}

// Gives every record the check value that it should have, which chance does not find.
void setCheckValues(std::string& bytes) {
  const char stx = static_cast<char>(tessolan::kSTX);
  for (std::size_t at = bytes.find(stx); at != std::string::npos && at + 1 < bytes.size(); at = bytes.find(stx, at)) {
    const std::size_t length = checkedLength(bytes, ++at);
    if (length == 0 || at + length + tessolan::kCheckSize > bytes.size()) continue;
    const std::uint16_t crc = crc16(bytes.data() + at, length);
    at += length;
    bytes[at++] = static_cast<char>(crc >> 8U);
    bytes[at++] = static_cast<char>(crc & 0xFFU);
  }
}

// Accepts all but the record whose number is `refused`, and finds each that it is handed among the bytes.
class CheckingSystem : public Tessolan::System {
 public:
  CheckingSystem(const std::string& bytes, std::size_t refused) : bytes_(bytes), refused_(refused) {}

  bool openFile(const char* name) override {
    take("\x02O", tessolan::kNameAt);
    return accept(name);
  }
  bool writeBlock(std::uint32_t offset, const unsigned char* data, std::uint32_t length) override {
    require(length <= tessolan::kLargestData);
    std::string record = "\x02W";
    for (const unsigned shift : {8U, 0U}) record += static_cast<char>((length >> shift) & 0xFFU);
    for (const unsigned shift : {24U, 16U, 8U, 0U}) record += static_cast<char>((offset >> shift) & 0xFFU);
    record.append(reinterpret_cast<const char*>(data), length);
    const std::uint16_t crc = crc16(record.data() + 1, record.size() - 1);
    record += static_cast<char>(crc >> 8U);
    record += static_cast<char>(crc & 0xFFU);
    return accept(record);
  }
  bool closeFile() override { return accept("\x02\x43\x03\x8A\x0C"); }
  bool recordR(const char* text) override { return accept(std::string("\x02R") + text); }
  bool showMessage(const char* text) override { return accept(std::string("\x02M") + text); }
  bool recordS() override { return accept("\x02S\x03\x6A\x0F"); }
  bool recordU() override { return accept("\x02U\x03\x7E\x0F"); }

  std::size_t accepted() const { return records_ - (hasRefused_ ? 1 : 0); }
  bool hasRefused() const { return hasRefused_; }

 private:
  // Moves behind the next `record` and `more` bytes; those of a text that is shorter are its end.
  void take(const std::string& record, std::size_t more = 0) {
    at_ = bytes_.find(record, at_);
    require(at_ != std::string::npos);
    at_ += record.size();
    const std::size_t end = bytes_.find(static_cast<char>(tessolan::kETX), at_);
    at_ = std::min(at_ + more, end);
  }

  bool accept(const std::string& record) {
    require(!hasRefused_);  // nothing comes behind a refusal
    take(record);
    hasRefused_ = ++records_ == refused_;
    return !hasRefused_;
  }

  const std::string& bytes_;
  const std::size_t refused_;
  std::size_t at_ = 0;
  std::size_t records_ = 0;
  bool hasRefused_ = false;
};

// How often the terminal has acknowledged; what is no answer of its own is a finding.
std::size_t acknowledgements(const std::string& answers) {
  std::size_t count = 0;
  for (std::size_t at = 0; at < answers.size(); ++at) {
    const auto answer = static_cast<unsigned char>(answers[at]);
    if (answer == tessolan::kACK) ++count;
    if (answer == tessolan::kSTX) at += tessolan::kParameterRecordSize - 1;
    require(answer == tessolan::kACK || answer == tessolan::kNAK || answer == tessolan::kEOT ||
            answer == tessolan::kSTX);
  }
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  std::string bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
  if (data[0] >= 64) setCheckValues(bytes);
  CheckingSystem system(bytes, data[1]);
  MemoryLine line(system);
  // In what pieces they arrive makes no difference: what is wanted is waited for.
  std::string answers = line.exchange(bytes);
  // The host has fallen silent, or the operator gives up.
  if (line.result() == tessolan::Conversation::kGoOn) {
    answers += line.fail(data[0] >= 192 ? Tessolan::kAborted : Tessolan::kFailed);
  }
  require(line.result() == tessolan::Conversation::kGoOn ||
          (line.result() <= Tessolan::kDone && line.result() >= Tessolan::kRefused &&
           line.result() != Tessolan::kNoDevice));
  require((line.result() == Tessolan::kRefused) == system.hasRefused());
  require(acknowledgements(answers) >= system.accepted());
  return 0;
}
