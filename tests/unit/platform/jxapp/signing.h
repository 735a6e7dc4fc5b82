// Certificates and signatures made for a test.
#pragma once

#include <memory>
#include <string>

struct evp_pkey_st;
struct x509_st;

// A key with a certificate for it.
struct Identity {
  std::shared_ptr<evp_pkey_st> key;
  std::shared_ptr<x509_st> certificate;

  std::string certificatePem() const;
};

struct CertificateWish {
  std::string commonName = "Signer";
  long beginsInSeconds = -3600;
  long endsInSeconds = 3600;
  bool authority = false;
  const char* keyUsage = nullptr;          // an extension in OpenSSL's notation, or none
  const char* extendedKeyUsage = nullptr;  // likewise
};

// Signed by `issuer`, or by itself where that is null.
Identity makeIdentity(const CertificateWish& wish, const Identity* issuer = nullptr);

struct ListWish {
  const Identity* revoked = nullptr;
  long beginsInSeconds = -3600;
  long endsInSeconds = 3600;
  const Identity* signer = nullptr;  // in the issuer's place
  bool der = false;
  bool namesItsKey = false;  // by an authority key identifier
};

// A list of revoked certificates in PEM, of the issuer's name.
std::string revocationList(const Identity& issuer, const ListWish& wish = {});

struct SignatureWish {
  bool attached = false;
  bool withoutAttributes = false;
  bool withoutCertificate = false;
  bool sha1 = false;
  const Identity* intermediate = nullptr;
  const Identity* second = nullptr;  // a second signer
};

// A CMS signature of `content` in DER.
std::string signatureOf(const Identity& signer, const std::string& content, const SignatureWish& wish = {});
