#include "platform/linux/jsproc/utf8.h"

#include <cstdint>

namespace jxplatform {
namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;
constexpr std::uint32_t kFirstBeyondBmp = 0x10000;
constexpr std::uint32_t kLastCodePoint = 0x10FFFF;

bool isHighSurrogate(std::uint32_t code) { return code >= 0xD800 && code <= 0xDBFF; }
bool isLowSurrogate(std::uint32_t code) { return code >= 0xDC00 && code <= 0xDFFF; }
bool isSurrogate(std::uint32_t code) { return code >= 0xD800 && code <= 0xDFFF; }

// Takes code points off a byte string, surrogates included; overlong forms and stray bytes give kReplacement, a byte
// each.
class Decoder {
 public:
  Decoder(const char* data, std::size_t size) : data_(data), size_(size) {}

  bool atEnd() const { return at_ == size_; }
  std::size_t position() const { return at_; }
  void goTo(std::size_t position) { at_ = position; }

  std::uint32_t next() {
    const std::uint32_t lead = byteAt(at_++);
    if (lead < 0x80) return lead;
    if (lead >= 0xC2 && lead < 0xE0) return finish(lead & 0x1FU, 1, 0x80);
    if (lead >= 0xE0 && lead < 0xF0) return finish(lead & 0x0FU, 2, 0x800);
    if (lead >= 0xF0 && lead < 0xF5) return finish(lead & 0x07U, 3, kFirstBeyondBmp);
    return kReplacement;
  }

 private:
  std::uint32_t byteAt(std::size_t index) const { return static_cast<unsigned char>(data_[index]); }

  std::uint32_t finish(std::uint32_t code, std::size_t continuations, std::uint32_t smallest) {
    if (size_ - at_ < continuations) return kReplacement;
    for (std::size_t i = 0; i < continuations; ++i) {
      const std::uint32_t byte = byteAt(at_ + i);
      if ((byte & 0xC0U) != 0x80U) return kReplacement;
      code = (code << 6U) | (byte & 0x3FU);
    }
    if (code < smallest || code > kLastCodePoint) return kReplacement;
    at_ += continuations;
    return code;
  }

  const char* data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

void append(std::string& text, std::uint32_t code) {
  const auto put = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
  if (code < 0x80) return put(code);
  if (code < 0x800) {
    put(0xC0U | (code >> 6U));
  } else if (code < kFirstBeyondBmp) {
    put(0xE0U | (code >> 12U));
    put(0x80U | ((code >> 6U) & 0x3FU));
  } else {
    put(0xF0U | (code >> 18U));
    put(0x80U | ((code >> 12U) & 0x3FU));
    put(0x80U | ((code >> 6U) & 0x3FU));
  }
  put(0x80U | (code & 0x3FU));
}

// The character that begins with `high`, or kReplacement when its other half does not follow.
std::uint32_t joinSurrogates(Decoder& decoder, std::uint32_t high) {
  if (!isHighSurrogate(high) || decoder.atEnd()) return kReplacement;
  const std::size_t before = decoder.position();
  const std::uint32_t low = decoder.next();
  if (isLowSurrogate(low)) return kFirstBeyondBmp + ((high - 0xD800) << 10U) + (low - 0xDC00);
  decoder.goTo(before);
  return kReplacement;
}

}  // namespace

std::string toCesu8(const std::string& text) {
  std::string result;
  result.reserve(text.size());
  Decoder decoder(text.data(), text.size());
  while (!decoder.atEnd()) {
    const std::uint32_t code = decoder.next();
    if (code >= kFirstBeyondBmp) {
      append(result, 0xD800 + ((code - kFirstBeyondBmp) >> 10U));
      append(result, 0xDC00 + ((code - kFirstBeyondBmp) & 0x3FFU));
    } else {
      append(result, isSurrogate(code) ? kReplacement : code);
    }
  }
  return result;
}

std::string fromCesu8(const char* data, std::size_t size) {
  std::string result;
  result.reserve(size);
  Decoder decoder(data, size);
  while (!decoder.atEnd()) {
    const std::uint32_t code = decoder.next();
    append(result, isSurrogate(code) ? joinSurrogates(decoder, code) : code);
  }
  return result;
}

}  // namespace jxplatform
