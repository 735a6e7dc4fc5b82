#include "tools/jxpush/http/certificate_archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <array>
#include <ctime>
#include <memory>
#include <optional>

#include "platform/linux/openssl/bio.h"
#include "platform/linux/openssl/sha256.h"
#include "tools/jxpush/common/problem.h"

namespace jxpush {

namespace {

constexpr std::int64_t kLargestEntry = std::int64_t{1} << 20;
constexpr std::size_t kMostCertificates = 10000;
constexpr std::int64_t kPerDay = 86400;

using jxplatform::Bio;
using Reader = std::unique_ptr<archive, int (*)(archive*)>;

[[noreturn]] void fail(const std::string& reason) {
  throw Problem(ExitCode::kGaveUp, "the terminal's certificates.tar cannot be read: " + reason, "bad-archive");
}

std::string nameText(const X509_NAME* name) {
  const Bio bio(BIO_new(BIO_s_mem()));
  // One line; control characters are escaped, what is no ASCII stays UTF-8.
  constexpr unsigned long kFlags =
      XN_FLAG_ONELINE & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB) & ~static_cast<unsigned long>(XN_FLAG_SPC_EQ);
  if (!bio || X509_NAME_print_ex(bio.get(), name, 0, kFlags) < 0) return "";
  return jxplatform::contentOf(bio.get());
}

// Certificates outlive a time_t of 32 bits.
std::int64_t secondsOf(const ASN1_TIME* time) {
  const jxplatform::Time epoch(ASN1_TIME_set(nullptr, 0));
  int days = 0;
  int seconds = 0;
  return epoch && ASN1_TIME_diff(&days, &seconds, epoch.get(), time) == 1 ? days * kPerDay + seconds : 0;
}

std::string digestOf(X509* certificate) {
  unsigned char* der = nullptr;
  const int size = i2d_X509(certificate, &der);
  if (size < 0) return "";
  jxplatform::Sha256 digest;
  digest.add(der, static_cast<std::size_t>(size));
  OPENSSL_free(der);
  const std::optional<std::string> hex = digest.hex();
  if (!hex) fail("libcrypto cannot compute SHA-256");
  return *hex;
}

Certificate describe(const std::string& file, X509* x509) {
  Certificate certificate;
  certificate.file = file;
  certificate.subject = nameText(X509_get_subject_name(x509));
  certificate.issuer = nameText(X509_get_issuer_name(x509));
  certificate.notBefore = secondsOf(X509_get0_notBefore(x509));
  certificate.notAfter = secondsOf(X509_get0_notAfter(x509));
  certificate.sha256 = digestOf(x509);
  return certificate;
}

void addCertificates(const std::string& file, const std::string& pem, std::vector<Certificate>& found) {
  const std::size_t before = found.size();
  const Bio bio = jxplatform::memoryOf(pem);
  while (bio && found.size() < kMostCertificates) {
    const jxplatform::Certificate x509(PEM_read_bio_X509(bio.get(), nullptr, jxplatform::noPassphrase, nullptr));
    if (!x509) break;
    found.push_back(describe(file, x509.get()));
  }
  const bool ended = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
  ERR_clear_error();
  if (found.size() > before && ended) return;
  Certificate unreadable;
  unreadable.file = file;
  unreadable.error = "no certificate that can be read";
  found.push_back(unreadable);
}

[[noreturn]] void fail(archive* reader) {
  const char* const reason = archive_error_string(reader);
  fail(reason == nullptr ? "unreadable" : reason);
}

std::string readEntry(archive* reader) {
  std::string content;
  std::array<char, 8192> block;
  for (;;) {
    const la_ssize_t count = archive_read_data(reader, block.data(), block.size());
    if (count < 0) fail(reader);
    if (count == 0) return content;
    content.append(block.data(), static_cast<std::size_t>(count));
    if (static_cast<std::int64_t>(content.size()) > kLargestEntry) fail("an entry is too large");
  }
}

}  // namespace

std::vector<Certificate> readCertificateArchive(const std::string& archive) {
  const Reader reader(archive_read_new(), archive_read_free);
  if (!reader || archive_read_support_format_tar(reader.get()) != ARCHIVE_OK) fail("no tar reader");
  if (archive_read_open_memory(reader.get(), archive.data(), archive.size()) != ARCHIVE_OK) fail(reader.get());
  std::vector<Certificate> found;
  for (;;) {
    archive_entry* entry = nullptr;
    const int result = archive_read_next_header(reader.get(), &entry);
    if (result == ARCHIVE_EOF) return found;
    if (result != ARCHIVE_OK) fail(reader.get());
    if (archive_entry_filetype(entry) != AE_IFREG) continue;
    const char* const name = archive_entry_pathname(entry);
    addCertificates(name == nullptr ? "" : name, readEntry(reader.get()), found);
    if (found.size() >= kMostCertificates) fail("too many certificates");
  }
}

std::string timeText(std::int64_t seconds) {
  const jxplatform::Time time(
      ASN1_TIME_adj(nullptr, 0, static_cast<int>(seconds / kPerDay), static_cast<long>(seconds % kPerDay)));
  std::tm parts{};
  char text[32] = "";
  if (time && ASN1_TIME_to_tm(time.get(), &parts) == 1) std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

}  // namespace jxpush
