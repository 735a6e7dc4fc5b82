#include "http/base64.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zorhtml {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char kSkipped = 0xFF;

std::array<unsigned char, 256> makeValues() {
  std::array<unsigned char, 256> values{};
  values.fill(kSkipped);
  for (unsigned char value = 0; value < 64; ++value) values[static_cast<unsigned char>(kAlphabet[value])] = value;
  return values;
}

bool overlaps(const void* input, std::size_t length, const void* output, std::size_t size) {
  const auto from = reinterpret_cast<std::uintptr_t>(input);
  const auto to = reinterpret_cast<std::uintptr_t>(output);
  return from < to + size && to < from + length;
}

void encodeGroup(const unsigned char* bytes, std::size_t count, char* text) {
  const unsigned first = bytes[0];
  const unsigned second = count > 1 ? bytes[1] : 0U;
  const unsigned third = count > 2 ? bytes[2] : 0U;
  const unsigned bits = first << 16U | second << 8U | third;
  text[0] = kAlphabet[bits >> 18U];
  text[1] = kAlphabet[bits >> 12U & 63U];
  text[2] = count > 1 ? kAlphabet[bits >> 6U & 63U] : '=';
  text[3] = count > 2 ? kAlphabet[bits & 63U] : '=';
}

}  // namespace

int base64Encode(const void* input, int length, char* output, int size) {
  const std::size_t count = length > 0 ? static_cast<std::size_t>(length) : 0;
  const std::size_t encoded = (count + 2) / 3 * 4;
  if (size <= 0 || encoded >= static_cast<std::size_t>(size)) return -1;
  const auto* bytes = static_cast<const unsigned char*>(input);
  if (count > 0 && overlaps(input, count, output, encoded + 1)) {
    // From the end of the encoded area the reading stays ahead of the writing.
    std::memmove(output + (encoded - count), input, count);
    bytes = reinterpret_cast<const unsigned char*>(output) + (encoded - count);
  }
  char* text = output;
  for (std::size_t at = 0; at < count; at += 3, text += 4) encodeGroup(bytes + at, count - at, text);
  *text = '\0';
  return static_cast<int>(encoded);
}

int base64Decode(const char* input, int length, void* output, int size) {
  static const std::array<unsigned char, 256> values = makeValues();
  const std::size_t count = length < 0 ? std::strlen(input) : static_cast<std::size_t>(length);
  auto* bytes = static_cast<unsigned char*>(output);
  int written = 0;
  unsigned bits = 0;
  unsigned pending = 0;
  for (std::size_t at = 0; at < count; ++at) {
    const unsigned char value = values[static_cast<unsigned char>(input[at])];
    if (value == kSkipped) continue;
    bits = (bits << 6U | value) & 0xFFFFU;
    pending += 6;
    if (pending < 8) continue;
    if (written >= size) return -1;
    pending -= 8;
    bytes[written++] = static_cast<unsigned char>(bits >> pending & 0xFFU);
  }
  return written;
}

}  // namespace zorhtml
