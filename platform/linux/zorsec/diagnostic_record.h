// The diagnostic records of the terminal's security module.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/support/terminal_settings.h"

namespace jxplatform {

using DiagnosticRecord = std::vector<unsigned char>;

constexpr std::int64_t kLargestSponsorNumber = 999'999;

// One record. Words are four bytes, least significant first:
//
//   0             length of the identifier
//   4             the number as six digit bytes, units first; the digit is in the low four bits
//   10            distance from offset 14 to the name field
//   14            the identifier
//   14+distance   length of the name
//   18+distance   the name, not terminated
//
// `number` is 0 to kLargestSponsorNumber.
[[nodiscard]] DiagnosticRecord makeDiagnosticRecord(const std::vector<unsigned char>& identifier, std::int64_t number,
                                                    const std::string& name);

// The sponsor's record; nothing when its identifier or number is not known or fits no record: an identifier of other
// than an even number of hexadecimal digits, a number of more than six digits or below 0. An unknown name is empty.
[[nodiscard]] std::optional<DiagnosticRecord> makeSponsorRecord(const Sponsor& sponsor);

}  // namespace jxplatform
