#include "tools/jxpush/http/certificate_archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <gmock/gmock.h>
#include <openssl/pem.h>

#include "platform/linux/openssl/bio.h"
#include "tools/jxpush/common/problem.h"

using namespace jxpush;

namespace {

using Pair = std::pair<std::string, std::string>;

// A self-signed certificate, valid from 2020-01-02T03:04:05Z to 2050-12-31T23:59:59Z, in PEM.
std::string makeCertificate(const std::string& name) {
  const jxplatform::Key key(EVP_EC_gen("P-256"));
  const jxplatform::Certificate x509(X509_new());
  X509_set_version(x509.get(), 2);
  ASN1_INTEGER_set(X509_get_serialNumber(x509.get()), 1);
  ASN1_TIME_set_string(X509_getm_notBefore(x509.get()), "200102030405Z");
  ASN1_TIME_set_string(X509_getm_notAfter(x509.get()), "20501231235959Z");
  X509_NAME* const subject = X509_get_subject_name(x509.get());
  X509_NAME_add_entry_by_txt(subject, "O", MBSTRING_UTF8, reinterpret_cast<const unsigned char*>("\xC3\x96rg"), -1, -1,
                             0);
  X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8, reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1,
                             0);
  X509_set_issuer_name(x509.get(), subject);
  X509_set_pubkey(x509.get(), key.get());
  EXPECT_GT(X509_sign(x509.get(), key.get(), EVP_sha256()), 0);
  const jxplatform::Bio bio(BIO_new(BIO_s_mem()));
  EXPECT_EQ(1, PEM_write_bio_X509(bio.get(), x509.get()));
  return jxplatform::contentOf(bio.get());
}

la_ssize_t append(archive* /*writer*/, void* data, const void* bytes, std::size_t size) {
  static_cast<std::string*>(data)->append(static_cast<const char*>(bytes), size);
  return static_cast<la_ssize_t>(size);
}

std::string makeTar(const std::vector<Pair>& entries, unsigned type = AE_IFREG) {
  std::string text;
  archive* const writer = archive_write_new();
  archive_write_set_format_ustar(writer);
  archive_write_open(writer, &text, nullptr, append, nullptr);
  for (const Pair& entry : entries) {
    archive_entry* const header = archive_entry_new();
    archive_entry_set_pathname(header, entry.first.c_str());
    archive_entry_set_filetype(header, type);
    archive_entry_set_perm(header, 0644);
    archive_entry_set_size(header, static_cast<la_int64_t>(entry.second.size()));
    archive_write_header(writer, header);
    archive_write_data(writer, entry.second.data(), entry.second.size());
    archive_entry_free(header);
  }
  archive_write_free(writer);
  return text;
}

// `reason` stands at the end of the message.
void expectUnreadable(const std::string& archive, const std::string& reason = "") {
  try {
    const std::vector<Certificate> found = readCertificateArchive(archive);
    ADD_FAILURE() << found.size() << " read of " << archive.size() << " bytes";
  } catch (const Problem& problem) {
    EXPECT_EQ(problem.code(), ExitCode::kGaveUp);
    EXPECT_STREQ(problem.status(), "bad-archive");
    EXPECT_THAT(problem.what(), testing::StartsWith("the terminal's certificates.tar cannot be read: "));
    EXPECT_THAT(problem.what(), testing::EndsWith(reason));
  }
}

}  // namespace

TEST(CertificateArchive, Certificate_IsDescribed) {
  const auto found = readCertificateArchive(makeTar({{"ca.pem", makeCertificate("Test")}}));
  ASSERT_EQ(1U, found.size());
  EXPECT_EQ("ca.pem", found[0].file);
  EXPECT_EQ("", found[0].error);
  EXPECT_EQ("O=\xC3\x96rg, CN=Test", found[0].subject);
  EXPECT_EQ(found[0].subject, found[0].issuer);
  EXPECT_EQ(1577934245, found[0].notBefore);
  EXPECT_EQ(2556143999, found[0].notAfter);  // beyond 32 bits
  EXPECT_EQ(64U, found[0].sha256.size());
}

TEST(TimeText, Seconds_AreADateAndATime) {
  EXPECT_EQ("1970-01-01T00:00:00Z", timeText(0));
  EXPECT_EQ("1969-12-31T23:59:59Z", timeText(-1));
  EXPECT_EQ("2020-01-02T03:04:05Z", timeText(1577934245));
  EXPECT_EQ("2050-12-31T23:59:59Z", timeText(2556143999));
  EXPECT_EQ("9999-12-31T23:59:59Z", timeText(253402300799));
}

TEST(TimeText, SecondsBeyondTheYear9999_AreNone) { EXPECT_EQ("", timeText(253402300800)); }

TEST(CertificateArchive, SeveralInOneEntry_AreSeveral) {
  const std::string pem = "text before\n" + makeCertificate("One") + "between\n" + makeCertificate("Two");
  const auto found = readCertificateArchive(makeTar({{"chain.pem", pem}, {"b.pem", makeCertificate("Three")}}));
  ASSERT_EQ(3U, found.size());
  EXPECT_EQ("O=\xC3\x96rg, CN=Two", found[1].subject);
  EXPECT_EQ("b.pem", found[2].file);
  EXPECT_NE(found[0].sha256, found[1].sha256);
}

TEST(CertificateArchive, ControlCharactersInAName_AreEscaped) {
  const auto found = readCertificateArchive(makeTar({{"a.pem", makeCertificate("x\x1b[2J\ny")}}));
  ASSERT_EQ(1U, found.size());
  EXPECT_EQ("O=\xC3\x96rg, CN=x\\1B[2J\\0Ay", found[0].subject);
}

TEST(CertificateArchive, UnreadableCertificates_AreReported) {
  const std::string good = makeCertificate("One");
  for (const std::string& content : {std::string(), std::string("nonsense"), good.substr(0, good.size() / 2),
                                     std::string("-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n")}) {
    const auto found = readCertificateArchive(makeTar({{"bad.pem", content}, {"good.pem", good}}));
    ASSERT_EQ(2U, found.size()) << content;
    EXPECT_EQ("no certificate that can be read", found[0].error);
    EXPECT_EQ("", found[1].error);
  }
}

TEST(CertificateArchive, GoodCertificateBeforeADamagedOne_IsFollowedByTheReport) {
  const auto found = readCertificateArchive(
      makeTar({{"a.pem", makeCertificate("One") + "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n"}}));
  ASSERT_EQ(2U, found.size());
  EXPECT_EQ("", found[0].error);
  EXPECT_NE("", found[1].error);
}

TEST(CertificateArchive, EmptyArchive_HasNone) { EXPECT_TRUE(readCertificateArchive(makeTar({})).empty()); }

TEST(CertificateArchive, WhatIsNoFile_IsPassedOver) {
  EXPECT_TRUE(readCertificateArchive(makeTar({{"folder", ""}}, AE_IFDIR)).empty());
}

TEST(CertificateArchive, OtherBytes_AreNoArchive) {
  expectUnreadable("<html>It works!</html>");
  expectUnreadable(std::string(1000, 'x'));
}

TEST(CertificateArchive, EveryCutOfAnEntry_IsRefused) {
  const std::string pem = makeCertificate("Test");
  const std::string tar = makeTar({{"ca.pem", pem}});
  for (std::size_t size = 1; size < 512 + pem.size(); size += 7) {
    expectUnreadable(tar.substr(0, size));
  }
}

TEST(CertificateArchive, TenThousandCertificates_AreTooMany) {
  std::string entry;
  const std::string pem = makeCertificate("One");
  for (int i = 0; i < 1000; ++i) entry += pem;
  expectUnreadable(makeTar(std::vector<Pair>(10, {"a.pem", entry})), "too many certificates");
}

TEST(CertificateArchive, HugeEntry_IsRefused) {
  expectUnreadable(makeTar({{"a.pem", std::string((1 << 20) + 1, 'x')}}), "an entry is too large");
}
