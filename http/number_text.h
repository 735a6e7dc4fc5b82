// Numbers as sscanf of the terminal's C library reads them: white space, a sign, digits; what follows is ignored. A
// number that does not fit gives the result of the 32-bit strtol and strtoul on every build, so that a terminal and a
// 64-bit board answer the same bytes alike.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zorhtml {

// As "%d". Out of range: the nearest limit.
std::optional<std::int32_t> scanDecimal(const std::string& text);

// As "%u". Out of range: 4294967295; a minus sign negates modulo 2^32.
std::optional<std::uint32_t> scanUnsigned(const std::string& text);

// As "%x", with or without "0x" before the digits; limits and sign as for scanUnsigned. A prefix without a digit behind
// it is 0, as that library has it.
std::optional<std::uint32_t> scanHex(const std::string& text);

}  // namespace zorhtml
