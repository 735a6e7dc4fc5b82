#include "tools/jxpack/private_key_finder.h"

#include <openssl/err.h>
#include <openssl/pkcs12.h>

#include <algorithm>
#include <string_view>

#include "base/text.h"
#include "platform/linux/openssl/owners.h"

namespace jxpack {
namespace {

constexpr std::size_t kMaxDerBytes = std::size_t{64} * 1024;
constexpr std::size_t kMaxLabelBytes = 20;
constexpr std::size_t kLeastContent = 16;
// More than the beginning of a key in PEM has up to the part of its content that is looked for.
constexpr std::size_t kOverlapBytes = 256;

bool isBase64(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

// Behind line ends, written out too, as in a string of JSON.
std::string_view contentBehind(std::string_view text) {
  for (;;) {
    const std::size_t blanks = std::min(text.find_first_not_of(" \t\r\n"), text.size());
    text.remove_prefix(blanks);
    const bool escaped = base::beginsWith(text, "\\n") || base::beginsWith(text, "\\r");
    if (!escaped) return text;
    text.remove_prefix(2);
  }
}

bool hasContent(std::string_view text) {
  text = contentBehind(text);
  if (base::beginsWith(text, "Proc-Type:") || base::beginsWith(text, "Version:") || base::beginsWith(text, "Comment:"))
    return true;
  return text.size() >= kLeastContent && std::all_of(text.begin(), text.begin() + kLeastContent, isBase64);
}

// Whether a block of PEM begins in front of `at`, where its label ends.
bool beginsBlock(std::string_view text, std::size_t at) {
  constexpr std::string_view kBegin = "-----BEGIN ";
  const std::size_t begin = text.rfind(kBegin, at);
  return begin != std::string_view::npos && at - begin <= kBegin.size() + kMaxLabelBytes &&
         text.substr(begin, at - begin).find('\n') == std::string_view::npos;
}

bool hasPemKey(std::string_view text) {
  constexpr std::string_view kLabel = "PRIVATE KEY";
  for (std::size_t at = text.find(kLabel); at != std::string_view::npos; at = text.find(kLabel, at + 1)) {
    std::string_view rest = text.substr(at + kLabel.size());
    if (base::beginsWith(rest, " BLOCK")) rest.remove_prefix(std::string_view(" BLOCK").size());
    if (!base::beginsWith(rest, "-----")) continue;
    rest.remove_prefix(std::string_view("-----").size());
    if (beginsBlock(text, at) && hasContent(rest)) return true;
  }
  return false;
}

// Whether all of `bytes` is what `parse` reads.
template <typename Owner, typename Parse>
Owner parseWhole(const std::string& bytes, Parse parse) {
  const auto* at = reinterpret_cast<const unsigned char*>(bytes.data());
  const unsigned char* const end = at + bytes.size();
  Owner object(parse(nullptr, &at, static_cast<long>(bytes.size())));
  return at == end ? std::move(object) : Owner();
}

using EncryptedKey = std::unique_ptr<X509_SIG, jxplatform::Freer<X509_SIG_free>>;
using KeyStore = std::unique_ptr<PKCS12, jxplatform::Freer<PKCS12_free>>;

// A digest has the same form; the algorithm tells the two apart.
bool isEncryptedKey(const std::string& bytes) {
  const auto key = parseWhole<EncryptedKey>(bytes, d2i_X509_SIG);
  if (!key) return false;
  const X509_ALGOR* algorithm = nullptr;
  X509_SIG_get0(key.get(), &algorithm, nullptr);
  const ASN1_OBJECT* kind = nullptr;
  X509_ALGOR_get0(&kind, nullptr, nullptr, algorithm);
  return EVP_PBE_find(EVP_PBE_TYPE_OUTER, OBJ_obj2nid(kind), nullptr, nullptr, nullptr) == 1;
}

bool isDerKey(const std::string& bytes) {
  constexpr char kSequence = '\x30';
  if (bytes.empty() || bytes.front() != kSequence) return false;
  const bool key = parseWhole<jxplatform::Key>(bytes, d2i_AutoPrivateKey) || isEncryptedKey(bytes) ||
                   parseWhole<KeyStore>(bytes, d2i_PKCS12);
  ERR_clear_error();
  return key;
}

}  // namespace

void PrivateKeyFinder::add(const char* data, std::size_t size) {
  tooLarge_ = tooLarge_ || whole_.size() + size > kMaxDerBytes;
  if (!tooLarge_) whole_.append(data, size);
  window_.append(data, size);
  pem_ = pem_ || hasPemKey(window_);
  if (window_.size() > kOverlapBytes) window_.erase(0, window_.size() - kOverlapBytes);
}

bool PrivateKeyFinder::found() const { return pem_ || (!tooLarge_ && isDerKey(whole_)); }

}  // namespace jxpack
