#include "tests/unit/platform/jxapp/signing.h"

#include <openssl/cms.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <stdexcept>

#include "platform/linux/openssl/bio.h"

namespace {

using jxplatform::Bio;
using jxplatform::Cms;
using jxplatform::contentOf;
using jxplatform::memoryOf;

void check(bool done) {
  if (!done) throw std::runtime_error("OpenSSL refuses");
}

void addExtension(X509* certificate, int kind, const char* value) {
  if (value == nullptr) return;
  X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value);
  check(extension != nullptr && X509_add_ext(certificate, extension, -1) == 1);
  X509_EXTENSION_free(extension);
}

// By the serial number of the issuer's certificate.
void addKeyIdentifier(X509_CRL* list, const Identity& issuer) {
  const std::unique_ptr<AUTHORITY_KEYID, jxplatform::Freer<AUTHORITY_KEYID_free>> identifier(AUTHORITY_KEYID_new());
  identifier->serial = ASN1_INTEGER_dup(X509_get_serialNumber(issuer.certificate.get()));
  check(X509_CRL_add1_ext_i2d(list, NID_authority_key_identifier, identifier.get(), 0, 0) == 1);
}

}  // namespace

std::string Identity::certificatePem() const {
  const Bio memory(BIO_new(BIO_s_mem()));
  check(PEM_write_bio_X509(memory.get(), certificate.get()) == 1);
  return contentOf(memory.get());
}

Identity makeIdentity(const CertificateWish& wish, const Identity* issuer) {
  static long serial = 0;
  Identity identity;
  identity.key.reset(EVP_EC_gen("P-256"), EVP_PKEY_free);
  identity.certificate.reset(X509_new(), X509_free);
  X509* const certificate = identity.certificate.get();
  const Identity& signer = issuer != nullptr ? *issuer : identity;
  check(X509_set_version(certificate, X509_VERSION_3) == 1);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), ++serial);
  X509_gmtime_adj(X509_getm_notBefore(certificate), wish.beginsInSeconds);
  X509_gmtime_adj(X509_getm_notAfter(certificate), wish.endsInSeconds);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(wish.commonName.c_str()), -1, -1, 0);
  check(X509_set_issuer_name(certificate, X509_get_subject_name(signer.certificate.get())) == 1);
  check(X509_set_pubkey(certificate, identity.key.get()) == 1);
  addExtension(certificate, NID_basic_constraints, wish.authority ? "critical,CA:TRUE" : "CA:FALSE");
  addExtension(certificate, NID_key_usage, wish.keyUsage);
  addExtension(certificate, NID_ext_key_usage, wish.extendedKeyUsage);
  check(X509_sign(certificate, signer.key.get(), EVP_sha256()) > 0);
  return identity;
}

std::string revocationList(const Identity& issuer, const ListWish& wish) {
  const jxplatform::RevocationList list(X509_CRL_new());
  const jxplatform::Time begin(X509_gmtime_adj(nullptr, wish.beginsInSeconds));
  const jxplatform::Time end(X509_gmtime_adj(nullptr, wish.endsInSeconds));
  check(X509_CRL_set_version(list.get(), X509_CRL_VERSION_2) == 1);
  check(X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(issuer.certificate.get())) == 1);
  check(X509_CRL_set1_lastUpdate(list.get(), begin.get()) == 1);
  check(X509_CRL_set1_nextUpdate(list.get(), end.get()) == 1);
  if (wish.revoked != nullptr) {
    X509_REVOKED* const entry = X509_REVOKED_new();
    check(X509_REVOKED_set_serialNumber(entry, X509_get_serialNumber(wish.revoked->certificate.get())) == 1);
    check(X509_REVOKED_set_revocationDate(entry, begin.get()) == 1);
    check(X509_CRL_add0_revoked(list.get(), entry) == 1);
  }
  if (wish.namesItsKey) addKeyIdentifier(list.get(), issuer);
  check(X509_CRL_sort(list.get()) == 1);
  const Identity& signer = wish.signer != nullptr ? *wish.signer : issuer;
  check(X509_CRL_sign(list.get(), signer.key.get(), EVP_sha256()) > 0);
  const Bio memory(BIO_new(BIO_s_mem()));
  check((wish.der ? i2d_X509_CRL_bio(memory.get(), list.get()) : PEM_write_bio_X509_CRL(memory.get(), list.get())) ==
        1);
  return contentOf(memory.get());
}

std::string signatureOf(const Identity& signer, const std::string& content, const SignatureWish& wish) {
  unsigned flags = CMS_BINARY | CMS_PARTIAL;
  if (!wish.attached) flags |= CMS_DETACHED;
  if (wish.withoutAttributes) flags |= CMS_NOATTR;
  if (wish.withoutCertificate) flags |= CMS_NOCERTS;
  const EVP_MD* const digest = wish.sha1 ? EVP_sha1() : EVP_sha256();
  const Bio data = memoryOf(content);
  const Cms cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags));
  check(CMS_add1_signer(cms.get(), signer.certificate.get(), signer.key.get(), digest, flags) != nullptr);
  if (wish.second != nullptr) {
    check(CMS_add1_signer(cms.get(), wish.second->certificate.get(), wish.second->key.get(), digest, flags) != nullptr);
  }
  if (wish.intermediate != nullptr) check(CMS_add1_cert(cms.get(), wish.intermediate->certificate.get()) == 1);
  check(CMS_final(cms.get(), data.get(), nullptr, flags) == 1);
  const Bio memory(BIO_new(BIO_s_mem()));
  check(i2d_CMS_bio(memory.get(), cms.get()) == 1);
  return contentOf(memory.get());
}
