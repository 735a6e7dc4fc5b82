#include "platform/linux/openssl/bio.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>

namespace jxplatform {

TEST(Bio, MemoryOf_GivesEveryByteAndThenItsEnd) {
  const std::string bytes("a\0\xff", 3);
  const Bio memory = memoryOf(bytes);
  ASSERT_TRUE(memory);
  char read[8];
  EXPECT_EQ(BIO_read(memory.get(), read, sizeof read), 3);
  EXPECT_EQ(std::string(read, 3), bytes);
  EXPECT_LE(BIO_read(memory.get(), read, sizeof read), 0);
}

TEST(Bio, ContentOf_IsWhatWasWritten) {
  const Bio memory(BIO_new(BIO_s_mem()));
  EXPECT_EQ(contentOf(memory.get()), "");
  const std::string bytes("a\0\xff", 3);
  EXPECT_EQ(BIO_write(memory.get(), bytes.data(), 3), 3);
  EXPECT_EQ(contentOf(memory.get()), bytes);
}

TEST(Bio, NoPassphrase_KeyThatNeedsOneCannotBeRead) {
  char buffer[8];
  EXPECT_LT(noPassphrase(buffer, sizeof buffer, 0, nullptr), 0);
  const Key key(EVP_EC_gen("P-256"));
  for (const bool encrypted : {false, true}) {
    const Bio memory(BIO_new(BIO_s_mem()));
    unsigned char passphrase[] = "secret";
    ASSERT_EQ(PEM_write_bio_PrivateKey(memory.get(), key.get(), encrypted ? EVP_aes_128_cbc() : nullptr, passphrase, 6,
                                       nullptr, nullptr),
              1);
    const Key read(PEM_read_bio_PrivateKey(memory.get(), nullptr, noPassphrase, nullptr));
    EXPECT_EQ(read == nullptr, encrypted);
  }
}

}  // namespace jxplatform
