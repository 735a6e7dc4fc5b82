#include "platform/linux/jxapp/signature.h"

#include <openssl/cms.h>
#include <openssl/cmserr.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <exception>
#include <utility>
#include <vector>

#include "base/ignore.h"
#include "base/text.h"
#include "platform/linux/jxapp/certificates.h"
#include "platform/linux/openssl/bio.h"

namespace jxinstall {
namespace {

using jxplatform::Bio;
using jxplatform::BorrowedCertificates;
using jxplatform::Certificate;
using jxplatform::Certificates;
using jxplatform::Cms;
using jxplatform::contentOf;
using jxplatform::memoryOf;
using jxplatform::RevocationList;
using jxplatform::RevocationLists;
using jxplatform::Store;
using jxplatform::StoreContext;

constexpr const char* kUnreadable = "has a signature that is not a detached CMS signature in DER";

std::string subjectOf(const X509* certificate) {
  const Bio text(BIO_new(BIO_s_mem()));
  if (!text || certificate == nullptr) return base::quotedPrintable("");
  X509_NAME_print_ex(text.get(), X509_get_subject_name(certificate), 0, XN_FLAG_RFC2253);
  return base::quotedPrintable(contentOf(text.get()));
}

std::string timeText(const ASN1_TIME* time) {
  const Bio text(BIO_new(BIO_s_mem()));
  if (!text || ASN1_TIME_print(text.get(), time) != 1) return "an unreadable date";
  return contentOf(text.get());
}

// The certificates in certs/, each of which is trusted by itself, be it a root or not.
Store trustedStore(const std::string& certs) {
  Store store(X509_STORE_new());
  std::vector<std::pair<std::string, std::string>> files;
  base::ignore(readCertificateFiles(certs, files));  // one that cannot be read vouches for nothing
  for (const auto& [name, content] : files) {
    const Bio text = memoryOf(content);
    while (text && store) {
      const Certificate certificate(PEM_read_bio_X509(text.get(), nullptr, jxplatform::noPassphrase, nullptr));
      if (!certificate) break;
      X509_STORE_add_cert(store.get(), certificate.get());
    }
  }
  if (store) X509_STORE_set_flags(store.get(), X509_V_FLAG_PARTIAL_CHAIN);
  return store;
}

// Adds the lists of a file in DER, or in PEM, where it may have several. False when it has none, or something else.
bool addLists(X509_STORE* store, const std::string& bytes) {
  const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
  const unsigned char* const end = data + bytes.size();
  const RevocationList single(d2i_X509_CRL(nullptr, &data, static_cast<long>(bytes.size())));
  if (single && data == end) return X509_STORE_add_crl(store, single.get()) == 1;
  const Bio text = memoryOf(bytes);
  for (int count = 0;; ++count) {
    ERR_clear_error();
    const RevocationList list(text ? PEM_read_bio_X509_CRL(text.get(), nullptr, jxplatform::noPassphrase, nullptr)
                                   : nullptr);
    if (!list) return count > 0 && ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
    if (X509_STORE_add_crl(store, list.get()) != 1) return false;
  }
}

// A list that cannot be read must not let pass whom it was to bar.
std::string listProblem(X509_STORE* store, const std::string& certs) {
  std::vector<std::pair<std::string, std::string>> files;
  const bool complete = readRevocationFiles(certs, files);
  for (const auto& [name, content] : files) {
    if (!addLists(store, content)) {
      return "is signed, but certs/" + base::printable(name) + " is no list of revoked certificates";
    }
  }
  if (!complete) return "is signed, but the revocation lists in certs/ cannot be read";
  if (!files.empty()) X509_STORE_set_flags(store, X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL);
  return "";
}

// Nothing when `bytes` is anything but one DER structure.
Cms parseSignature(const std::string& bytes) {
  const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
  const unsigned char* const end = data + bytes.size();
  Cms cms(d2i_CMS_ContentInfo(nullptr, &data, static_cast<long>(bytes.size())));
  if (!cms || data != end || OBJ_obj2nid(CMS_get0_type(cms.get())) != NID_pkcs7_signed ||
      CMS_is_detached(cms.get()) != 1) {
    return nullptr;
  }
  const STACK_OF(CMS_SignerInfo)* const signers = CMS_get0_SignerInfos(cms.get());
  return sk_CMS_SignerInfo_num(signers) > 0 ? std::move(cms) : nullptr;
}

// Whether the queue of OpenSSL's errors has a reason of its CMS part.
bool errorsHave(int reason) {
  bool found = false;
  while (const unsigned long error = ERR_get_error()) {
    found = found || (ERR_GET_LIB(error) == ERR_LIB_CMS && ERR_GET_REASON(error) == reason);
  }
  return found;
}

// The signatures alone; the certificates are looked at afterwards, since their faults have texts of their own.
std::string contentProblem(CMS_ContentInfo* cms, const std::string& manifest) {
  // Of memory alone the library makes a copy, which it leaves behind where it fails early; of a filter's it makes none.
  const Bio content(BIO_new(BIO_f_null()));
  Bio memory = memoryOf(manifest);
  if (!content || !memory) return kUnreadable;
  BIO_push(content.get(), memory.release());
  ERR_clear_error();
  constexpr unsigned kFlags = CMS_DETACHED | CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY;
  if (CMS_verify(cms, nullptr, nullptr, content.get(), nullptr, kFlags) == 1) return "";
  const unsigned long first = ERR_peek_error();
  if (ERR_GET_LIB(first) == ERR_LIB_CMS && ERR_GET_REASON(first) == CMS_R_SIGNER_CERTIFICATE_NOT_FOUND) {
    return "is signed without the signer's certificate";
  }
  // The step that compares content and signature; a signature without signed attributes fails in it whatever is wrong.
  return errorsHave(CMS_R_CONTENT_VERIFY_ERROR) ? "has a signature for another manifest"
                                                : "has a signature that does not match the signer's key";
}

std::string digestProblem(CMS_ContentInfo* cms) {
  const STACK_OF(CMS_SignerInfo)* const signers = CMS_get0_SignerInfos(cms);
  for (int i = 0; i < sk_CMS_SignerInfo_num(signers); ++i) {
    X509_ALGOR* digest = nullptr;
    CMS_SignerInfo_get0_algs(sk_CMS_SignerInfo_value(signers, i), nullptr, nullptr, &digest, nullptr);
    const ASN1_OBJECT* kind = nullptr;
    X509_ALGOR_get0(&kind, nullptr, nullptr, digest);
    const int nid = OBJ_obj2nid(kind);
    if (nid == NID_md5 || nid == NID_sha1)
      return std::string("is signed with ") + OBJ_nid2sn(nid) + ", which is too weak";
  }
  return "";
}

// A certificate made for something else, such as a web server, must not vouch for packages.
bool maySign(X509* certificate) {
  const std::uint32_t uses = X509_get_extended_key_usage(certificate);
  constexpr std::uint32_t kSigning = XKU_CODE_SIGN | XKU_SMIME | XKU_ANYEKU;
  return (X509_get_key_usage(certificate) & KU_DIGITAL_SIGNATURE) != 0 && (uses & kSigning) != 0;
}

std::string revocationTime(X509_STORE_CTX* context, X509* certificate) {
  X509_REVOKED* revoked = nullptr;
  if (X509_CRL_get0_by_cert(X509_STORE_CTX_get0_current_crl(context), &revoked, certificate) == 0) return "";
  return timeText(X509_REVOKED_get0_revocationDate(revoked));
}

// What is wrong with the list that certs/ has of the certificate's issuer; empty when the error is another one.
std::string revocationProblem(X509_STORE_CTX* context) {
  const X509_CRL* const list = X509_STORE_CTX_get0_current_crl(context);
  const std::string which = "whose revocation list in certs/ ";
  switch (X509_STORE_CTX_get_error(context)) {
    case X509_V_ERR_CERT_REVOKED:
      return "that was revoked on " + revocationTime(context, X509_STORE_CTX_get_current_cert(context));
    case X509_V_ERR_UNABLE_TO_GET_CRL:
      return "that no revocation list in certs/ covers";
    case X509_V_ERR_CRL_HAS_EXPIRED:
      return which + "expired on " + timeText(X509_CRL_get0_nextUpdate(list));
    case X509_V_ERR_CRL_NOT_YET_VALID:
      return which + "is not valid before " + timeText(X509_CRL_get0_lastUpdate(list));
    case X509_V_ERR_CRL_SIGNATURE_FAILURE:
    case X509_V_ERR_UNABLE_TO_GET_CRL_ISSUER:
      return which + "is not signed by its issuer";
    default:
      return "";
  }
}

// What keeps a list from being heeded. A chain may end before the issuer of its last certificate, without whose key
// nothing can be said of the issuer's list.
bool isListFault(int error) {
  switch (error) {
    case X509_V_ERR_UNABLE_TO_GET_CRL:
    case X509_V_ERR_UNABLE_TO_GET_CRL_ISSUER:
    case X509_V_ERR_CRL_SIGNATURE_FAILURE:
    case X509_V_ERR_KEYUSAGE_NO_CRL_SIGN:
    case X509_V_ERR_CRL_HAS_EXPIRED:
    case X509_V_ERR_CRL_NOT_YET_VALID:
      return true;
    default:
      return false;
  }
}

// Asked at each fault, while the context still has the list that it is about; keeps the text of a fault of lists. The
// last certificate of a chain stands in certs/ and needs no list of its issuer.
int judgeFault(int good, X509_STORE_CTX* context) {
  if (good == 1) return 1;
  const bool last = X509_STORE_CTX_get_error_depth(context) + 1 == sk_X509_num(X509_STORE_CTX_get0_chain(context));
  if (last && isListFault(X509_STORE_CTX_get_error(context))) {
    X509_STORE_CTX_set_error(context, X509_V_OK);
    return 1;
  }
  try {
    *static_cast<std::string*>(X509_STORE_CTX_get_app_data(context)) = revocationProblem(context);
  } catch (const std::exception&) {
    // Without memory for its text the fault is told by the library's.
  }
  return 0;
}

// Whether the signer's own certificate is meant, or one above it.
std::string signedBy(bool own) { return own ? "is signed by a certificate " : "is signed through a certificate "; }

// A list in certs/ of whatever signature bars the last certificate of a chain, which the library may not have looked
// up.
std::string revocationOfTheLast(X509_STORE_CTX* context) {
  const STACK_OF(X509)* const chain = X509_STORE_CTX_get0_chain(context);
  X509* const last = sk_X509_value(chain, sk_X509_num(chain) - 1);
  const RevocationLists lists(X509_STORE_CTX_get1_crls(context, X509_get_issuer_name(last)));
  for (int i = 0; i < sk_X509_CRL_num(lists.get()); ++i) {
    X509_REVOKED* revoked = nullptr;
    if (X509_CRL_get0_by_cert(sk_X509_CRL_value(lists.get(), i), &revoked, last) == 0) continue;
    return signedBy(sk_X509_num(chain) == 1) + "that was revoked on " +
           timeText(X509_REVOKED_get0_revocationDate(revoked)) + ": " + subjectOf(last);
  }
  return "";
}

std::string chainProblem(X509_STORE_CTX* context, const std::string& revoked) {
  const int error = X509_STORE_CTX_get_error(context);
  const X509* const certificate = X509_STORE_CTX_get_current_cert(context);
  const std::string subject = ": " + subjectOf(certificate);
  const std::string how = signedBy(X509_STORE_CTX_get_error_depth(context) == 0);
  if (!revoked.empty()) return how + revoked + subject;
  switch (error) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return how + "that expired on " + timeText(X509_get0_notAfter(certificate)) + subject;
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return how + "that is not valid before " + timeText(X509_get0_notBefore(certificate)) + subject;
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_CERT_UNTRUSTED:
      return how + "that does not chain to one in certs/" + subject;
    default:
      return how + "that is not accepted (" + X509_verify_cert_error_string(error) + ")" + subject;
  }
}

std::string certificateProblem(X509_STORE* store, X509* certificate, STACK_OF(X509) * others) {
  constexpr int kAuthenticationLevel = 2;  // 112 bits: RSA of 2048 bits, no SHA-1
  const StoreContext context(X509_STORE_CTX_new());
  if (!context || X509_STORE_CTX_init(context.get(), store, certificate, others) != 1) return kUnreadable;
  std::string revoked;
  X509_STORE_CTX_set_app_data(context.get(), &revoked);
  X509_STORE_CTX_set_verify_cb(context.get(), judgeFault);
  X509_VERIFY_PARAM_set_auth_level(X509_STORE_CTX_get0_param(context.get()), kAuthenticationLevel);
  if (X509_verify_cert(context.get()) != 1) return chainProblem(context.get(), revoked);
  std::string problem = revocationOfTheLast(context.get());
  if (!problem.empty()) return problem;
  if (maySign(certificate)) return "";
  return "is signed by a certificate that is not accepted (not for signing): " + subjectOf(certificate);
}

}  // namespace

std::string signatureProblem(const std::string& certs, const std::string& manifest,
                             const std::optional<std::string>& signature) {
  if (!signature) return "is not signed";
  const Cms cms = parseSignature(*signature);
  if (!cms) return kUnreadable;
  std::string problem = contentProblem(cms.get(), manifest);
  if (problem.empty()) problem = digestProblem(cms.get());
  if (!problem.empty()) return problem;
  const Store store = trustedStore(certs);
  const Certificates others(CMS_get1_certs(cms.get()));
  const BorrowedCertificates signers(CMS_get0_signers(cms.get()));
  if (!store || !signers || sk_X509_num(signers.get()) == 0) return kUnreadable;
  problem = listProblem(store.get(), certs);
  for (int i = 0; i < sk_X509_num(signers.get()) && problem.empty(); ++i) {
    problem = certificateProblem(store.get(), sk_X509_value(signers.get(), i), others.get());
  }
  ERR_clear_error();
  return problem;
}

}  // namespace jxinstall
