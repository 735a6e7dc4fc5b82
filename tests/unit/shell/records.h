// Diagnostic records, byte by byte.
#pragma once

#include <cstdint>
#include <string>

inline const std::string kAcceptedIdentifier{"\x02\x03\x20\x08\x21\xC5", 6};

inline std::string word(std::uint32_t value) {
  std::string bytes;
  for (unsigned shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(value >> shift & 0xFFU);
  return bytes;
}

// A record with its parts as given: length of the identifier, digit bytes from the units on, distance, identifier.
inline std::string recordHead(std::uint32_t identifierLength, const std::string& digits, std::uint32_t distance,
                              const std::string& identifier) {
  return word(identifierLength) + digits + word(distance) + identifier;
}

// A good record for the number with these digits, most significant first.
inline std::string sponsorRecord(const std::string& number, const std::string& name,
                                 const std::string& identifier = kAcceptedIdentifier) {
  return recordHead(6, {number.rbegin(), number.rend()}, 6, identifier) +
         word(static_cast<std::uint32_t>(name.size())) + name;
}
