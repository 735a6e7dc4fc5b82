#include "platform/linux/jxapp/digest.h"

#include <openssl/evp.h>

#include <array>

#include "base/text.h"
#include "platform/linux/jxapp/failure.h"

namespace jxinstall {
namespace {

void check(bool done) {
  if (!done) throw Failure("the SHA-256 digest cannot be computed");
}

}  // namespace

Sha256::Sha256() : context_(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
  check(context_ && EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) == 1);
}

void Sha256::add(const char* data, std::size_t size) { check(EVP_DigestUpdate(context_.get(), data, size) == 1); }

std::string Sha256::hex() {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int size = 0;
  check(EVP_DigestFinal_ex(context_.get(), digest.data(), &size) == 1);
  return base::hexDigits(digest.data(), size);
}

}  // namespace jxinstall
