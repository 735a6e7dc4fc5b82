#include "platform/linux/openssl/sha256.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

namespace {

// The call of the library that refuses; empty: none.
std::string refusing;

}  // namespace

extern "C" {
EVP_MD_CTX* __real_EVP_MD_CTX_new();
int __real_EVP_DigestInit_ex(EVP_MD_CTX* context, const EVP_MD* type, ENGINE* engine);
int __real_EVP_DigestUpdate(EVP_MD_CTX* context, const void* data, std::size_t size);
int __real_EVP_DigestFinal_ex(EVP_MD_CTX* context, unsigned char* digest, unsigned* size);

EVP_MD_CTX* __wrap_EVP_MD_CTX_new() { return refusing == "new" ? nullptr : __real_EVP_MD_CTX_new(); }

int __wrap_EVP_DigestInit_ex(EVP_MD_CTX* context, const EVP_MD* type, ENGINE* engine) {
  return refusing == "init" ? 0 : __real_EVP_DigestInit_ex(context, type, engine);
}

int __wrap_EVP_DigestUpdate(EVP_MD_CTX* context, const void* data, std::size_t size) {
  return refusing == "update" ? 0 : __real_EVP_DigestUpdate(context, data, size);
}

int __wrap_EVP_DigestFinal_ex(EVP_MD_CTX* context, unsigned char* digest, unsigned* size) {
  return refusing == "final" ? 0 : __real_EVP_DigestFinal_ex(context, digest, size);
}
}

namespace jxplatform {

TEST(Sha256, DigestsOfTheStandardsExamples) {
  Sha256 nothing;
  EXPECT_EQ(nothing.hex(), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  Sha256 abc;
  abc.add("abc", 3);
  EXPECT_EQ(abc.hex(), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(Sha256, Pieces_AreOneText) {
  Sha256 digest;
  const std::string piece(1000, 'a');
  for (int i = 0; i < 1000; ++i) digest.add(piece.data(), piece.size());
  digest.add("", 0);
  EXPECT_EQ(digest.hex(), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Sha256, LibraryThatRefusesAStep_GivesNoDigest) {
  for (const char* const step : {"new", "init", "update", "final"}) {
    refusing = step;
    Sha256 digest;
    digest.add("abc", 3);
    if (refusing == "update") refusing.clear();  // a later step that succeeds does not heal it
    digest.add("def", 3);
    EXPECT_EQ(digest.hex(), std::nullopt) << step;
  }
  refusing.clear();
}

}  // namespace jxplatform
