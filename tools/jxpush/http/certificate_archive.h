// The certificates in the archive that a terminal offers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace jxpush {

struct Certificate {
  std::string file;     // the archive entry's name
  std::string error;    // why the entry holds no certificate that can be read; the rest is empty then
  std::string subject;  // "CN=..., O=..."
  std::string issuer;
  std::int64_t notBefore = 0;  // seconds since 1970-01-01 UTC
  std::int64_t notAfter = 0;
  std::string sha256;  // of the certificate's DER form, in lower-case hex
};

// Reads the certificates (PEM) of a tar archive in its order; an entry with several gives several. Throws
// Problem(kGaveUp), "bad-archive", when the archive cannot be read.
[[nodiscard]] std::vector<Certificate> readCertificateArchive(const std::string& archive);

// The point in time `seconds` after 1970 as "YYYY-MM-DDTHH:MM:SSZ"; empty for one beyond the year 9999.
[[nodiscard]] std::string timeText(std::int64_t seconds);

}  // namespace jxpush
