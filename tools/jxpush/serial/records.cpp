#include "tools/jxpush/serial/records.h"

#include <algorithm>
#include <cstring>

#include "serial/crc16.h"
#include "serial/wire.h"

namespace jxpush {

namespace {

constexpr std::size_t kLargestText = tessolan::kLargestBody - 1 - tessolan::kCheckSize;
constexpr std::size_t kLargestParameterRecord = 256;
constexpr int kLengthField = 7;  // counted from 0

std::string bigEndian(std::uint32_t value, unsigned size) {
  std::string bytes;
  while (size-- > 0) bytes += static_cast<char>((value >> (8U * size)) & 0xFFU);
  return bytes;
}

std::string checkValue(const std::string& covered) { return bigEndian(crc16(covered.data(), covered.size()), 2); }

std::string record(const std::string& covered) {
  return static_cast<char>(tessolan::kSTX) + covered + checkValue(covered);
}

std::string textRecord(char letter, const std::string& text) {
  return record(letter + text + static_cast<char>(tessolan::kETX));
}

bool continuesCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

// Without control characters, and cut before the UTF-8 character that would not fit whole.
std::string fit(std::string text, std::size_t largest) {
  for (char& byte : text) {
    if (static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F) byte = '_';
  }
  if (text.size() <= largest) return text;
  std::size_t size = largest;
  while (size > 0 && continuesCharacter(text[size])) --size;
  return text.substr(0, size == 0 ? largest : size);
}

bool beginsWith(const std::string& text, const char* beginning) { return text.rfind(beginning, 0) == 0; }

bool isOneOf(const char* letters, char letter) { return letter != 0 && std::strchr(letters, letter) != nullptr; }

// Where a record of the letter at `at` ends, if it is as long as its beginning says; `npos` where that cannot be told.
std::size_t endOfRecord(const std::string& bytes, std::size_t at) {
  constexpr std::size_t kHead = 1 + tessolan::kHeaderSize;
  if (bytes[at] == 'W' && bytes.size() - at >= kHead) {
    const auto high = static_cast<unsigned char>(bytes[at + 1]);
    const auto low = static_cast<unsigned char>(bytes[at + 2]);
    return at + kHead + (high * 256U + low) + tessolan::kCheckSize;
  }
  const std::size_t etx = bytes.find(static_cast<char>(tessolan::kETX), at);
  const bool known = isOneOf("ORM$DFILPT", bytes[at]) || (isOneOf("CSU", bytes[at]) && etx == at + 1);
  return known && etx != std::string::npos ? etx + 1 + tessolan::kCheckSize : std::string::npos;
}

// Where the first whole record behind the first byte ends; `npos` when there is none.
std::size_t endOfHiddenRecord(const std::string& bytes) {
  const char stx = static_cast<char>(tessolan::kSTX);
  for (std::size_t at = bytes.find(stx, 1); at != std::string::npos; at = bytes.find(stx, at + 1)) {
    const std::size_t end = at + 1 < bytes.size() ? endOfRecord(bytes, at + 1) : std::string::npos;
    if (end > bytes.size()) continue;
    const std::string covered = bytes.substr(at + 1, end - tessolan::kCheckSize - at - 1);
    if (checkValue(covered) == bytes.substr(end - tessolan::kCheckSize, tessolan::kCheckSize)) return end;
  }
  return std::string::npos;
}

// The eighth of the comma-separated fields as a length, kept within what a data record can hold.
std::size_t lengthField(const std::string& text) {
  std::size_t at = 0;
  for (int field = 0; field < kLengthField; ++field) {
    at = text.find(',', at);
    if (at == std::string::npos) return tessolan::kLargestData;
    ++at;
  }
  std::size_t length = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9' && length <= tessolan::kLargestData; ++at) {
    length = length * 10 + static_cast<std::size_t>(text[at] - '0');
  }
  return length == 0 ? tessolan::kLargestData : std::min(length, tessolan::kLargestData);
}

}  // namespace

std::string openRecord(const std::string& name) {
  const bool special = beginsWith(name, "setgroup.") || beginsWith(name, "setdrive.");
  const std::string fitted = fit((special ? "./" : "") + name, kLargestText - tessolan::kNameAt);
  return textRecord('O', std::string(tessolan::kNameAt, ' ') + fitted);
}

std::string dataRecord(std::uint32_t offset, const void* data, std::size_t size) {
  return record("W" + bigEndian(static_cast<std::uint32_t>(size), 2) + bigEndian(offset, 4) +
                std::string(static_cast<const char*>(data), size));
}

std::size_t safeDataSize(std::uint32_t offset, const void* data, std::size_t size) {
  constexpr std::size_t kDataAt = 2 + tessolan::kHeaderSize;
  for (;;) {
    const std::size_t end = endOfHiddenRecord(dataRecord(offset, data, size));
    if (end == std::string::npos || size <= 1) return size;
    size = std::clamp<std::size_t>(end - 1 - std::min(end - 1, kDataAt), 1, size - 1);
  }
}

std::string closeRecord() { return record(std::string("C") + static_cast<char>(tessolan::kETX)); }

std::string messageRecord(const std::string& head, const std::string& tail) {
  return textRecord('M', fit(head, kLargestText - tail.size()) + tail);
}

// The length holds none of the control bytes, so that a terminal which has lost step cannot take it for an end.
std::string cancelRecord() {
  return std::string(1, static_cast<char>(tessolan::kSTX)) + "W" + bigEndian(0xFFFF, 2) + bigEndian(0, 4);
}

bool ParameterReader::take(unsigned char byte) {
  seen_ += static_cast<char>(byte);
  if (seen_.size() < 1 + 1 + tessolan::kCheckSize) return false;
  const std::size_t etxAt = seen_.size() - tessolan::kCheckSize - 1;
  if (seen_[etxAt] != static_cast<char>(tessolan::kETX)) return false;
  // A check value may hold the byte of STX or ETX: every beginning is tried.
  for (std::size_t at = 0; at < etxAt; ++at) {
    if (seen_[at] != static_cast<char>(tessolan::kSTX) || etxAt - at > kLargestParameterRecord) continue;
    const std::string covered = seen_.substr(at + 1, etxAt - at);
    if (checkValue(covered) != seen_.substr(etxAt + 1)) continue;
    largestData_ = lengthField(covered);
    skipped_ = at;
    return true;
  }
  return false;
}

}  // namespace jxpush
