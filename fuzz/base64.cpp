// Any bytes decoded, and encoded and decoded back, into buffers of every tight size.
#include "http/base64.h"

#include <vector>

#include "fuzz/input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto* text = reinterpret_cast<const char*>(data);
  const int length = static_cast<int>(size);
  std::vector<char> decoded(size + 1);
  const int decodedLength = zorhtml::base64Decode(text, length, decoded.data(), static_cast<int>(decoded.size()));
  require(decodedLength >= 0 && decodedLength <= length);
  const int encodedLength = (length + 2) / 3 * 4;
  std::vector<char> encoded(static_cast<std::size_t>(encodedLength) + 1);
  require(zorhtml::base64Encode(text, length, encoded.data(), encodedLength) == -1);
  require(zorhtml::base64Encode(text, length, encoded.data(), encodedLength + 1) == encodedLength);
  require(encoded.back() == '\0');
  require(zorhtml::base64Decode(encoded.data(), encodedLength, decoded.data(), length + 1) == length);
  require(std::string(decoded.data(), size) == std::string(text, size));
  return 0;
}
