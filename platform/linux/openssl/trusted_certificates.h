// Certificates to be trusted, from PEM texts.
#pragma once

#include <openssl/x509.h>

#include <cstddef>
#include <string>

namespace jxplatform {

// Puts the certificates that `pem` begins with into `store`, each of them to be trusted, up to the first that cannot be
// read; other blocks between them are passed over. Returns how many there were. Asks nobody for a password.
[[nodiscard]] std::size_t trustCertificates(X509_STORE* store, const std::string& pem);

}  // namespace jxplatform
