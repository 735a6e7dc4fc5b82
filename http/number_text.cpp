#include "http/number_text.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <limits>

namespace zorhtml {

namespace {

constexpr std::uint64_t kTooLarge = std::uint64_t{1} << 32U;

struct Scanned {
  bool found = false;
  bool negative = false;
  std::uint64_t magnitude = 0;  // at most kTooLarge
};

char charAt(const std::string& text, std::size_t at) { return at < text.size() ? text[at] : '\0'; }

unsigned digitValue(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a') + 10U;
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A') + 10U;
  return 16U;
}

Scanned scan(const std::string& text, unsigned base) {
  Scanned result;
  std::size_t at = 0;
  while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])) != 0) ++at;
  if (charAt(text, at) == '-' || charAt(text, at) == '+') result.negative = text[at++] == '-';
  if (base == 16 && charAt(text, at) == '0' && (charAt(text, at + 1) == 'x' || charAt(text, at + 1) == 'X')) {
    result.found = true;  // the zero counts, whatever follows
    at += 2;
  }
  for (unsigned digit = 0; (digit = digitValue(charAt(text, at))) < base; ++at) {
    result.found = true;
    result.magnitude = std::min(result.magnitude * base + digit, kTooLarge);
  }
  return result;
}

std::optional<std::uint32_t> unsignedOf(const Scanned& scanned) {
  if (!scanned.found) return std::nullopt;
  if (scanned.magnitude == kTooLarge) return std::numeric_limits<std::uint32_t>::max();
  const auto value = static_cast<std::uint32_t>(scanned.magnitude);
  return scanned.negative ? std::uint32_t{0} - value : value;
}

}  // namespace

std::optional<std::int32_t> scanDecimal(const std::string& text) {
  const Scanned scanned = scan(text, 10);
  if (!scanned.found) return std::nullopt;
  const auto magnitude = static_cast<std::int64_t>(scanned.magnitude);
  const std::int64_t value = scanned.negative ? -magnitude : magnitude;
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, Limits::min(), Limits::max()));
}

std::optional<std::uint32_t> scanUnsigned(const std::string& text) { return unsignedOf(scan(text, 10)); }

std::optional<std::uint32_t> scanHex(const std::string& text) { return unsignedOf(scan(text, 16)); }

}  // namespace zorhtml
