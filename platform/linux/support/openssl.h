// The owners of OpenSSL's objects.
#pragma once

#include <openssl/bio.h>
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

using Bio = std::unique_ptr<BIO, Freer<BIO_free_all>>;
using Certificate = std::unique_ptr<X509, Freer<X509_free>>;

}  // namespace jxplatform
