#include "platform/linux/openssl/sha256.h"

#include <openssl/evp.h>

#include <array>

#include "base/text.h"

namespace jxplatform {

Sha256::Sha256()
    : context_(EVP_MD_CTX_new(), EVP_MD_CTX_free),
      good_(context_ && EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) == 1) {}

void Sha256::add(const void* data, std::size_t size) {
  good_ = good_ && EVP_DigestUpdate(context_.get(), data, size) == 1;
}

std::optional<std::string> Sha256::hex() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  if (!good_ || EVP_DigestFinal_ex(context_.get(), digest.data(), &size) != 1) return std::nullopt;
  return base::hexDigits(digest.data(), size);
}

}  // namespace jxplatform
