// Numbers as the C standard's scanf reads them on a 32-bit system: white space, a sign, digits; what follows is
// ignored, and a prefix "0x" without a digit behind it is no number. A number that does not fit gives the result of the
// 32-bit strtol and strtoul on every build, so that a terminal and a 64-bit board answer the same bytes alike.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zorhtml {

// As "%d". Out of range: the nearest limit.
std::optional<std::int32_t> scanDecimal(const std::string& text);

// As "%u". Out of range: 4294967295; a minus sign negates modulo 2^32.
std::optional<std::uint32_t> scanUnsigned(const std::string& text);

// As "%x", with or without "0x" before the digits; limits and sign as for scanUnsigned.
std::optional<std::uint32_t> scanHex(const std::string& text);

}  // namespace zorhtml
