#include "platform/linux/openssl/trusted_certificates.h"

#include <openssl/pem.h>

#include "platform/linux/openssl/bio.h"

namespace jxplatform {

std::size_t trustCertificates(X509_STORE* store, const std::string& pem) {
  const Bio text = memoryOf(pem);
  for (std::size_t count = 0;; ++count) {
    const Certificate certificate(text ? PEM_read_bio_X509_AUX(text.get(), nullptr, noPassphrase, nullptr) : nullptr);
    if (!certificate || X509_STORE_add_cert(store, certificate.get()) != 1) return count;
  }
}

}  // namespace jxplatform
