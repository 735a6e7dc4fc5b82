// The owners of OpenSSL's objects.
#pragma once

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

namespace jxplatform {

template <auto kFree>
struct Freer {
  template <typename Object>
  void operator()(Object* object) const {
    kFree(object);
  }
};

inline void freeCertificates(STACK_OF(X509) * stack) { sk_X509_pop_free(stack, X509_free); }
inline void freeLists(STACK_OF(X509_CRL) * stack) { sk_X509_CRL_pop_free(stack, X509_CRL_free); }
inline void freeStackOnly(STACK_OF(X509) * stack) { sk_X509_free(stack); }

using Bio = std::unique_ptr<BIO, Freer<BIO_free_all>>;
using BorrowedCertificates = std::unique_ptr<STACK_OF(X509), Freer<freeStackOnly>>;
using Certificate = std::unique_ptr<X509, Freer<X509_free>>;
using Certificates = std::unique_ptr<STACK_OF(X509), Freer<freeCertificates>>;
using Cms = std::unique_ptr<CMS_ContentInfo, Freer<CMS_ContentInfo_free>>;
using Key = std::unique_ptr<EVP_PKEY, Freer<EVP_PKEY_free>>;
using RevocationList = std::unique_ptr<X509_CRL, Freer<X509_CRL_free>>;
using RevocationLists = std::unique_ptr<STACK_OF(X509_CRL), Freer<freeLists>>;
using Store = std::unique_ptr<X509_STORE, Freer<X509_STORE_free>>;
using StoreContext = std::unique_ptr<X509_STORE_CTX, Freer<X509_STORE_CTX_free>>;
using Time = std::unique_ptr<ASN1_TIME, Freer<ASN1_TIME_free>>;

}  // namespace jxplatform
