#include "serial/crc16.h"

namespace {

constexpr std::uint16_t kPolynomial = 0x8005;

struct Table {
  std::uint16_t values[256];
};

constexpr std::uint16_t remainderOf(unsigned byte) {
  unsigned value = byte << 8U;
  for (int bit = 0; bit < 8; ++bit) value = (value << 1U) ^ ((value & 0x8000U) != 0 ? kPolynomial : 0U);
  return static_cast<std::uint16_t>(value & 0xFFFFU);
}

constexpr Table makeTable() {
  Table table{};
  for (unsigned byte = 0; byte < 256; ++byte) table.values[byte] = remainderOf(byte);
  return table;
}

constexpr Table kTable = makeTable();

}  // namespace

std::uint16_t crc16(const void* data, std::size_t size, std::uint16_t start) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  unsigned crc = start;
  for (std::size_t i = 0; i < size; ++i) crc = kTable.values[bytes[i] ^ (crc >> 8U)] ^ ((crc << 8U) & 0xFFFFU);
  return static_cast<std::uint16_t>(crc);
}
