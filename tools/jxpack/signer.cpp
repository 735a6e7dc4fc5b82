#include "tools/jxpack/signer.h"

#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <limits>

#include "base/file_io.h"
#include "platform/linux/openssl/bio.h"
#include "tools/jxpack/problem.h"

namespace jxpack {
namespace {

using jxplatform::Bio;
using jxplatform::Certificate;
using jxplatform::Certificates;
using jxplatform::Cms;
using jxplatform::Key;
using jxplatform::noPassphrase;
using jxplatform::Time;

[[noreturn]] void fail(const std::string& text) { throw Problem(ExitCode::kSigning, text); }

Bio openFile(const std::string& path) {
  Bio file(BIO_new_file(path.c_str(), "rb"));
  if (!file) {
    throw Problem(ExitCode::kFile, path + ": cannot be read: " + base::errorText(errno));
  }
  return file;
}

Key readKey(const std::string& path) {
  const Bio file = openFile(path);
  Key key(PEM_read_bio_PrivateKey(file.get(), nullptr, noPassphrase, nullptr));
  if (!key) fail(path + ": holds no private key in PEM, or one with a passphrase");
  return key;
}

struct Signer {
  Certificate own;
  Certificates others;
};

Signer readCertificates(const std::string& path) {
  const Bio file = openFile(path);
  Signer signer{Certificate(PEM_read_bio_X509(file.get(), nullptr, noPassphrase, nullptr)),
                Certificates(sk_X509_new_null())};
  if (!signer.own || !signer.others) fail(path + ": holds no certificate in PEM");
  while (X509* const other = PEM_read_bio_X509(file.get(), nullptr, noPassphrase, nullptr)) {
    sk_X509_push(signer.others.get(), other);
  }
  return signer;
}

void checkCertificate(const Signer& signer, const Key& key, const std::string& path) {
  if (X509_check_private_key(signer.own.get(), key.get()) != 1) fail(path + ": the first certificate is not the key's");
  if (X509_cmp_current_time(X509_get0_notAfter(signer.own.get())) < 0) fail(path + ": the certificate has expired");
  if (X509_cmp_current_time(X509_get0_notBefore(signer.own.get())) > 0) {
    fail(path + ": the certificate is not valid yet");
  }
}

// The time that $SOURCE_DATE_EPOCH gives; none when it is not set.
Time fixedTime() {
  const char* const text = std::getenv("SOURCE_DATE_EPOCH");
  if (text == nullptr || *text == '\0') return nullptr;
  char* end = nullptr;
  errno = 0;
  const long long seconds = std::strtoll(text, &end, 10);
  constexpr long long kLast = 253402300799;  // the year 9999
  if (errno != 0 || *end != '\0' || seconds < 0 || seconds > kLast ||
      seconds > std::numeric_limits<std::time_t>::max()) {
    fail("SOURCE_DATE_EPOCH is not a time in seconds");
  }
  Time time(ASN1_TIME_set(nullptr, static_cast<std::time_t>(seconds)));
  if (!time) fail("SOURCE_DATE_EPOCH is not a time in seconds");
  return time;
}

bool setTime(CMS_SignerInfo* signer) {
  const Time time = fixedTime();
  return !time || CMS_signed_add1_attr_by_NID(signer, NID_pkcs9_signingTime, time->type, time.get(), -1) == 1;
}

std::string bytesOf(CMS_ContentInfo* cms) {
  unsigned char* data = nullptr;
  const int size = i2d_CMS_ContentInfo(cms, &data);
  if (size <= 0) fail("the signature cannot be encoded");
  std::string bytes(reinterpret_cast<const char*>(data), static_cast<std::size_t>(size));
  OPENSSL_free(data);
  return bytes;
}

}  // namespace

std::string sign(const std::string& manifest, const std::string& keyPath, const std::string& certificatePath) {
  constexpr unsigned kFlags = CMS_DETACHED | CMS_BINARY;
  const Key key = readKey(keyPath);
  const Signer signer = readCertificates(certificatePath);
  checkCertificate(signer, key, certificatePath);
  const Bio content = jxplatform::memoryOf(manifest);
  const Cms cms(CMS_sign(nullptr, nullptr, signer.others.get(), nullptr, kFlags | CMS_PARTIAL));
  CMS_SignerInfo* const info =
      cms ? CMS_add1_signer(cms.get(), signer.own.get(), key.get(), EVP_sha256(), kFlags | CMS_PARTIAL) : nullptr;
  if (!content || info == nullptr || !setTime(info) || CMS_final(cms.get(), content.get(), nullptr, kFlags) != 1) {
    ERR_clear_error();
    fail(keyPath + ": the manifest cannot be signed with this key");
  }
  return bytesOf(cms.get());
}

}  // namespace jxpack
