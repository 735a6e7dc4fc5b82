#include "platform/linux/openssl/trusted_certificates.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>

#include "platform/linux/openssl/bio.h"

namespace jxplatform {
namespace {

// A self-signed certificate in PEM.
std::string certificatePem(const char* name) {
  const Key key(EVP_EC_gen("P-256"));
  const Certificate certificate(X509_new());
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(name), -1, -1, 0);
  X509_set_issuer_name(certificate.get(), X509_get_subject_name(certificate.get()));
  X509_set_pubkey(certificate.get(), key.get());
  EXPECT_GT(X509_sign(certificate.get(), key.get(), EVP_sha256()), 0);
  const Bio memory(BIO_new(BIO_s_mem()));
  EXPECT_EQ(PEM_write_bio_X509(memory.get(), certificate.get()), 1);
  return contentOf(memory.get());
}

// What trustCertificates() says of `pem`; the store then has as many.
std::size_t trusted(const std::string& pem) {
  const Store store(X509_STORE_new());
  const std::size_t count = trustCertificates(store.get(), pem);
  EXPECT_EQ(static_cast<std::size_t>(sk_X509_OBJECT_num(X509_STORE_get0_objects(store.get()))), count);
  return count;
}

}  // namespace

TEST(TrustedCertificates, EveryOneCounts_OtherTextIsPassedOver) {
  const std::string one = certificatePem("one");
  const std::string other = certificatePem("other");
  EXPECT_EQ(trusted(""), 0U);
  EXPECT_EQ(trusted("no certificate"), 0U);
  EXPECT_EQ(trusted(one), 1U);
  EXPECT_EQ(trusted("# one\n" + one + "# other\n" + other), 2U);
}

TEST(TrustedCertificates, FirstThatCannotBeRead_EndsThem) {
  const std::string one = certificatePem("one");
  const std::string broken = "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n";
  EXPECT_EQ(trusted(one + broken + certificatePem("other")), 1U);
}

}  // namespace jxplatform
