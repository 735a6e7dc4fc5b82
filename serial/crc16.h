// The check value of the Tessolan protocol.
#pragma once

#include <cstddef>
#include <cstdint>

// CRC-16/UMTS: polynomial 0x8005, start value 0, neither input nor output reflected, no final xor; 0xFEE8 for the nine
// bytes "123456789", 0 for none. `start` continues the value of the bytes before these.
[[nodiscard]] std::uint16_t crc16(const void* data, std::size_t size, std::uint16_t start = 0);
