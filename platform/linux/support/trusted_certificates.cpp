#include "platform/linux/support/trusted_certificates.h"

#include <openssl/pem.h>

#include <limits>

#include "platform/linux/support/openssl.h"

namespace jxplatform {

namespace {

// In place of the library's, which would ask at the terminal.
int noPassword(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*data*/) { return 0; }

}  // namespace

std::size_t trustCertificates(X509_STORE* store, const std::string& pem) {
  if (pem.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) return 0;
  const Bio text(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  for (std::size_t count = 0;; ++count) {
    const Certificate certificate(text ? PEM_read_bio_X509_AUX(text.get(), nullptr, noPassword, nullptr) : nullptr);
    if (!certificate || X509_STORE_add_cert(store, certificate.get()) != 1) return count;
  }
}

}  // namespace jxplatform
