// The bytes of the Tessolan download protocol, as both ends of the line use them.
#pragma once

#include <cstddef>

namespace tessolan {

constexpr unsigned char kSTX = 0x02;
constexpr unsigned char kETX = 0x03;
constexpr unsigned char kEOT = 0x04;
constexpr unsigned char kENQ = 0x05;
constexpr unsigned char kACK = 0x06;
constexpr unsigned char kNAK = 0x15;

constexpr std::size_t kCheckSize = 2;       // the check value, high byte first
constexpr std::size_t kHeaderSize = 6;      // of a data record: length and offset
constexpr std::size_t kLargestData = 1024;  // bytes in one data record
constexpr std::size_t kLargestBody = 255;   // of a text record: text, ETX and check value
constexpr std::size_t kNameAt = 39;         // where the file name begins in an 'O' record's text

// What the terminal answers to an enquiry, between STX and ETX. Ten fields; only the eighth, the largest data length,
// has a meaning.
constexpr char kParameters[] = "ZOR,JXAPP,XDL,p,,,,1024,,";
constexpr std::size_t kParametersSize = sizeof kParameters - 1;

}  // namespace tessolan
