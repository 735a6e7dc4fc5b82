#include "tools/jxpush/common/sha256.h"

#include <openssl/evp.h>

#include <stdexcept>

namespace jxpush {

namespace {

void check(int result) {
  if (result != 1) throw std::runtime_error("libcrypto cannot compute SHA-256");
}

}  // namespace

struct Sha256::Impl {
  EVP_MD_CTX* context = EVP_MD_CTX_new();
};

Sha256::Sha256() : impl_(std::make_unique<Impl>()) {
  check(impl_->context != nullptr ? 1 : 0);
  check(EVP_DigestInit_ex(impl_->context, EVP_sha256(), nullptr));
}

Sha256::~Sha256() { EVP_MD_CTX_free(impl_->context); }

void Sha256::add(const void* data, std::size_t size) { check(EVP_DigestUpdate(impl_->context, data, size)); }

std::string Sha256::finish() {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  check(EVP_DigestFinal_ex(impl_->context, digest, &size));
  constexpr const char* kDigits = "0123456789abcdef";
  std::string text;
  for (unsigned i = 0; i < size; ++i) {
    text += kDigits[digest[i] >> 4U];
    text += kDigits[digest[i] & 0xFU];
  }
  return text;
}

}  // namespace jxpush
