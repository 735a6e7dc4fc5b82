#include "platform/linux/zorsec/diagnostic_record.h"

namespace jxplatform {
namespace {

constexpr int kDigits = 6;
constexpr unsigned kDigitHighBits = 0x30;  // readers look at the low four bits only

void appendWord(DiagnosticRecord& record, std::size_t value) {
  for (unsigned shift = 0; shift < 32; shift += 8) {
    record.push_back(static_cast<unsigned char>((static_cast<std::uint32_t>(value) >> shift) & 0xFFU));
  }
}

void appendDigits(DiagnosticRecord& record, std::int64_t number) {
  for (int i = 0; i < kDigits; ++i) {
    record.push_back(static_cast<unsigned char>(kDigitHighBits | static_cast<unsigned>(number % 10)));
    number /= 10;
  }
}

int digitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

std::optional<std::vector<unsigned char>> bytesOf(const std::string& hex) {
  if (hex.empty() || hex.size() % 2 != 0) return std::nullopt;
  std::vector<unsigned char> bytes;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    const int high = digitValue(hex[i]);
    const int low = digitValue(hex[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes.push_back(static_cast<unsigned char>(high * 16 + low));
  }
  return bytes;
}

}  // namespace

DiagnosticRecord makeDiagnosticRecord(const std::vector<unsigned char>& identifier, std::int64_t number,
                                      const std::string& name) {
  DiagnosticRecord record;
  appendWord(record, identifier.size());
  appendDigits(record, number);
  appendWord(record, identifier.size());  // the name field follows the identifier
  record.insert(record.end(), identifier.begin(), identifier.end());
  appendWord(record, name.size());
  record.insert(record.end(), name.begin(), name.end());
  return record;
}

std::optional<DiagnosticRecord> makeSponsorRecord(const Sponsor& sponsor) {
  if (!sponsor.identifier || !sponsor.number) return std::nullopt;
  if (*sponsor.number < 0 || *sponsor.number > kLargestSponsorNumber) return std::nullopt;
  const auto identifier = bytesOf(*sponsor.identifier);
  if (!identifier) return std::nullopt;
  return makeDiagnosticRecord(*identifier, *sponsor.number, sponsor.name.value_or(""));
}

}  // namespace jxplatform
