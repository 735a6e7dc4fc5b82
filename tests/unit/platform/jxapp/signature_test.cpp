#include "platform/linux/jxapp/signature.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string_view>
#include <tuple>

#include "tests/unit/platform/jxapp/scratch.h"
#include "tests/unit/platform/jxapp/signing.h"
#include "tests/unit/platform/jxapp/system_calls.h"

namespace {

const std::string kManifest = "{\"name\":\"hello\"}\r\n\n";
const std::string kUnreadable = "has a signature that is not a detached CMS signature in DER";

CertificateWish authority(const std::string& commonName) {
  CertificateWish wish;
  wish.commonName = commonName;
  wish.authority = true;
  return wish;
}

class Signature : public testing::Test {
 protected:
  Signature() : root_(makeIdentity(authority("Root"))) { trust_.write("certs/root.pem", root_.certificatePem()); }

  std::string problemOf(const std::optional<std::string>& signature) const {
    return jxinstall::signatureProblem(trust_.path() + "/certs", kManifest, signature);
  }

  // The problem of a signature by a certificate of this kind, issued by the trusted root.
  std::string problemWith(const CertificateWish& wish) const {
    return problemOf(signatureOf(makeIdentity(wish, &root_), kManifest));
  }

  Scratch trust_;
  Identity root_;
};

TEST_F(Signature, ByACertificateOfATrustedRoot_HasNoProblem) { EXPECT_EQ(problemWith({}), ""); }

TEST_F(Signature, WithoutAttributes_HasNoProblem) {
  SignatureWish wish;
  wish.withoutAttributes = true;
  EXPECT_EQ(problemOf(signatureOf(makeIdentity({}, &root_), kManifest, wish)), "");
}

TEST_F(Signature, ThroughAnIntermediateThatItBrings_HasNoProblem) {
  const Identity middle = makeIdentity(authority("Middle"), &root_);
  const Identity signer = makeIdentity({}, &middle);
  SignatureWish wish;
  wish.intermediate = &middle;
  EXPECT_EQ(problemOf(signatureOf(signer, kManifest, wish)), "");
  EXPECT_EQ(problemOf(signatureOf(signer, kManifest)),
            "is signed by a certificate that does not chain to one in certs/: \"CN=Signer\"");
}

TEST_F(Signature, ByACertificateThatLiesInCertsItself_HasNoProblem) {
  const Identity alone = makeIdentity({});
  trust_.write("certs/alone.pem", alone.certificatePem());
  EXPECT_EQ(problemOf(signatureOf(alone, kManifest)), "");
}

TEST_F(Signature, SecondCertificateOfAFile_IsTrustedToo) {
  const Identity other = makeIdentity(authority("Other"));
  trust_.write("certs/root.pem", root_.certificatePem() + other.certificatePem());
  EXPECT_EQ(problemOf(signatureOf(makeIdentity({}, &other), kManifest)), "");
}

TEST_F(Signature, None_IsNotSigned) { EXPECT_EQ(problemOf(std::nullopt), "is not signed"); }

TEST_F(Signature, OfSomethingElse_IsUnreadable) {
  for (const std::string& bytes : {std::string(), std::string("junk"), std::string(1000, '\x30'),
                                   std::string("-----BEGIN CMS-----\nMAsGCSqGSIb3DQEHAg==\n-----END CMS-----\n")}) {
    EXPECT_EQ(problemOf(bytes), kUnreadable);
  }
}

TEST_F(Signature, CutOrContinued_IsUnreadable) {
  const std::string good = signatureOf(makeIdentity({}, &root_), kManifest);
  for (std::size_t size = 0; size < good.size(); ++size) EXPECT_EQ(problemOf(good.substr(0, size)), kUnreadable);
  EXPECT_EQ(problemOf(good + '\0'), kUnreadable);
  EXPECT_EQ(problemOf(good + good), kUnreadable);
}

TEST_F(Signature, ThatHoldsItsContent_IsUnreadable) {
  SignatureWish wish;
  wish.attached = true;
  EXPECT_EQ(problemOf(signatureOf(makeIdentity({}, &root_), kManifest, wish)), kUnreadable);
  EXPECT_EQ(problemOf(signatureOf(makeIdentity({}, &root_), "another", wish)), kUnreadable);
}

TEST_F(Signature, OfAnotherManifest_IsSaidSo) {
  EXPECT_EQ(problemOf(signatureOf(makeIdentity({}, &root_), kManifest + " ")), "has a signature for another manifest");
}

// Line ends are content: a signature of the text with other ones is another signature.
TEST_F(Signature, OfOtherLineEnds_IsOfAnotherManifest) {
  EXPECT_EQ(problemOf(signatureOf(makeIdentity({}, &root_), "{\"name\":\"hello\"}\r\n\r\n")),
            "has a signature for another manifest");
}

TEST_F(Signature, Tampered_DoesNotMatchTheKey) {
  std::string bytes = signatureOf(makeIdentity({}, &root_), kManifest);
  // The signature proper stands last.
  bytes.back() = static_cast<char>(bytes.back() ^ 1);
  EXPECT_EQ(problemOf(bytes), "has a signature that does not match the signer's key");
}

TEST_F(Signature, AnyBitChanged_IsNeverWithoutProblemAndOfAnotherContent) {
  const std::string good = signatureOf(makeIdentity({}, &root_), kManifest);
  for (std::size_t at = 0; at < good.size(); at += 3) {
    std::string bytes = good;
    bytes[at] = static_cast<char>(bytes[at] ^ 4);
    const std::string other = jxinstall::signatureProblem(trust_.path() + "/certs", kManifest + "x", bytes);
    EXPECT_NE(other, "") << at;
  }
}

TEST_F(Signature, Foreign_DoesNotChain) {
  const Identity stranger = makeIdentity(authority("Stranger"));
  const std::string foreign = "is signed by a certificate that does not chain to one in certs/: ";
  EXPECT_EQ(problemOf(signatureOf(makeIdentity({}, &stranger), kManifest)), foreign + "\"CN=Signer\"");
  EXPECT_EQ(problemOf(signatureOf(makeIdentity({}), kManifest)), foreign + "\"CN=Signer\"");
  // A root of the same name with another key.
  const Identity pretender = makeIdentity(authority("Root"));
  EXPECT_NE(problemOf(signatureOf(makeIdentity({}, &pretender), kManifest)), "");
}

TEST_F(Signature, WithoutAnyTrust_DoesNotChain) {
  const Scratch empty;
  EXPECT_EQ(
      jxinstall::signatureProblem(empty.path() + "/certs", kManifest, signatureOf(makeIdentity({}, &root_), kManifest)),
      "is signed by a certificate that does not chain to one in certs/: \"CN=Signer\"");
}

TEST_F(Signature, Expired_NamesTheTime) {
  CertificateWish wish;
  wish.beginsInSeconds = -7200;
  wish.endsInSeconds = -3600;
  const std::string problem = problemWith(wish);
  EXPECT_EQ(problem.rfind("is signed by a certificate that expired on ", 0), 0U) << problem;
  EXPECT_NE(problem.find(" GMT: \"CN=Signer\""), std::string::npos) << problem;
}

TEST_F(Signature, NotYetValid_NamesTheTime) {
  CertificateWish wish;
  wish.beginsInSeconds = 3600;
  wish.endsInSeconds = 7200;
  const std::string problem = problemWith(wish);
  EXPECT_EQ(problem.rfind("is signed by a certificate that is not valid before ", 0), 0U) << problem;
}

TEST_F(Signature, ExpiredIssuer_IsNamed) {
  CertificateWish wish = authority("Old root");
  wish.beginsInSeconds = -7200;
  wish.endsInSeconds = -3600;
  const Identity old = makeIdentity(wish);
  trust_.write("certs/old.pem", old.certificatePem());
  const std::string problem = problemOf(signatureOf(makeIdentity({}, &old), kManifest));
  EXPECT_EQ(problem.rfind("is signed through a certificate that expired on ", 0), 0U) << problem;
  EXPECT_NE(problem.find("\"CN=Old root\""), std::string::npos) << problem;
}

TEST_F(Signature, ByACertificateForOtherUses_IsNotAccepted) {
  const std::string refused = "is signed by a certificate that is not accepted (not for signing): \"CN=Signer\"";
  CertificateWish wish;
  wish.extendedKeyUsage = "serverAuth";
  EXPECT_EQ(problemWith(wish), refused);
  wish.extendedKeyUsage = "serverAuth,codeSigning";
  EXPECT_EQ(problemWith(wish), "");
  wish.extendedKeyUsage = "emailProtection";
  wish.keyUsage = "digitalSignature";
  EXPECT_EQ(problemWith(wish), "");
  wish.keyUsage = "keyEncipherment";
  EXPECT_EQ(problemWith(wish), refused);
}

TEST_F(Signature, IssuedByACertificateThatIsNoAuthority_IsNotAccepted) {
  const Identity leaf = makeIdentity({}, &root_);
  CertificateWish wish;
  wish.commonName = "Grandchild";
  SignatureWish with;
  with.intermediate = &leaf;
  EXPECT_NE(problemOf(signatureOf(makeIdentity(wish, &leaf), kManifest, with)), "");
}

TEST_F(Signature, WithSha1_IsTooWeak) {
  SignatureWish wish;
  wish.sha1 = true;
  EXPECT_EQ(problemOf(signatureOf(makeIdentity({}, &root_), kManifest, wish)),
            "is signed with SHA1, which is too weak");
}

TEST_F(Signature, WithoutTheSignersCertificate_IsSaidSo) {
  SignatureWish wish;
  wish.withoutCertificate = true;
  EXPECT_EQ(problemOf(signatureOf(makeIdentity({}, &root_), kManifest, wish)),
            "is signed without the signer's certificate");
}

TEST_F(Signature, OfTwoSigners_BothCount) {
  const Identity good = makeIdentity({}, &root_);
  CertificateWish strange;
  strange.commonName = "Second";
  const Identity second = makeIdentity(strange);
  SignatureWish wish;
  wish.second = &second;
  EXPECT_EQ(problemOf(signatureOf(good, kManifest, wish)),
            "is signed by a certificate that does not chain to one in certs/: \"CN=Second\"");
  wish.second = &good;
  EXPECT_EQ(problemOf(signatureOf(second, kManifest, wish)),
            "is signed by a certificate that does not chain to one in certs/: \"CN=Second\"");
  const Identity other = makeIdentity({}, &root_);
  wish.second = &other;
  EXPECT_EQ(problemOf(signatureOf(good, kManifest, wish)), "");
}

// A signer below an authority of its own below the trusted root.
class Revocation : public Signature {
 protected:
  std::string problem() const {
    SignatureWish wish;
    wish.intermediate = &middle_;
    return problemOf(signatureOf(signer_, kManifest, wish));
  }

  // The same without the time in it, which it must have.
  std::string problemWithoutTime() const {
    std::string text = problem();
    const std::size_t end = text.find(" GMT");
    if (end == std::string::npos) return text;
    constexpr std::size_t kTimeBytes = std::string_view("Nov 22 06:27:00 2026").size();
    return text.substr(0, end - kTimeBytes) + "TIME" + text.substr(end + 4);
  }

  void list(const Identity& issuer, const ListWish& wish = {}) const {
    trust_.write("certs/" + std::to_string(++lists_) + ".crl", revocationList(issuer, wish));
  }

  Identity middle_ = makeIdentity(authority("Middle"), &root_);
  Identity signer_ = makeIdentity({}, &middle_);
  mutable int lists_ = 0;
};

TEST_F(Revocation, ListsOfAllIssuersWithoutTheChain_LetItPass) {
  const Identity other = makeIdentity({}, &middle_);
  ListWish wish;
  wish.revoked = &other;
  list(root_);
  list(middle_, wish);
  EXPECT_EQ(problem(), "");
}

TEST_F(Revocation, OfTheSigner_IsTold) {
  for (const bool der : {false, true}) {
    ListWish wish;
    wish.revoked = &signer_;
    wish.der = der;
    list(root_);
    list(middle_, wish);
    EXPECT_EQ(problemWithoutTime(), "is signed by a certificate that was revoked on TIME: \"CN=Signer\"");
  }
}

TEST_F(Revocation, OfAnAuthority_IsTold) {
  ListWish wish;
  wish.revoked = &middle_;
  trust_.write("certs/both.crl", revocationList(root_, wish) + revocationList(middle_));
  EXPECT_EQ(problemWithoutTime(), "is signed through a certificate that was revoked on TIME: \"CN=Middle\"");
}

TEST_F(Revocation, ListOfAnotherIssuerAlone_CoversNobody) {
  list(makeIdentity(authority("Other")));
  EXPECT_EQ(problem(), "is signed by a certificate that no revocation list in certs/ covers: \"CN=Signer\"");
  list(middle_);
  EXPECT_EQ(problem(), "is signed through a certificate that no revocation list in certs/ covers: \"CN=Middle\"");
  list(root_);
  EXPECT_EQ(problem(), "");
}

TEST_F(Revocation, OfWhatLiesInCertsItself_NeedsNoList) {
  trust_.write("certs/middle.pem", middle_.certificatePem());
  list(middle_);
  EXPECT_EQ(problem(), "");
  for (const bool namesItsKey : {false, true}) {
    ListWish wish;
    wish.namesItsKey = namesItsKey;
    list(root_, wish);
    EXPECT_EQ(problem(), "") << namesItsKey;
  }
}

TEST_F(Revocation, OfWhatLiesInCertsItself_IsTold) {
  for (const bool namesItsKey : {false, true}) {
    trust_.write("certs/middle.pem", middle_.certificatePem());
    ListWish wish;
    wish.revoked = &middle_;
    wish.namesItsKey = namesItsKey;
    trust_.write("certs/root.crl", revocationList(root_, wish));
    trust_.write("certs/middle.crl", revocationList(middle_));
    EXPECT_EQ(problemWithoutTime(), "is signed through a certificate that was revoked on TIME: \"CN=Middle\"")
        << namesItsKey;
  }
}

TEST_F(Revocation, ListThatIsNotValidNow_IsTold) {
  ListWish wish;
  list(root_);
  wish.endsInSeconds = -60;
  list(middle_, wish);
  EXPECT_EQ(problemWithoutTime(),
            "is signed by a certificate whose revocation list in certs/ expired on TIME: \"CN=Signer\"");
  trust_.write("certs/2.crl", revocationList(middle_, {nullptr, 60, 3600, nullptr, false}));
  EXPECT_EQ(problemWithoutTime(),
            "is signed by a certificate whose revocation list in certs/ is not valid before TIME: \"CN=Signer\"");
}

TEST_F(Revocation, ListUnderAForeignSignature_IsTold) {
  ListWish wish;
  wish.signer = &signer_;
  list(root_);
  list(middle_, wish);
  EXPECT_EQ(problem(),
            "is signed by a certificate whose revocation list in certs/ is not signed by its issuer: \"CN=Signer\"");
}

TEST_F(Revocation, ListsThatCannotBeRead_LetNobodyPass) {
  list(middle_);
  list(root_);
  SystemCalls calls;
  calls.fail("open", EMFILE, "/certs", 1);  // after the certificates
  EXPECT_EQ(problem(), "is signed, but the revocation lists in certs/ cannot be read");
}

TEST_F(Revocation, FileThatIsNoList_LetsNobodyPass) {
  const std::string good = revocationList(root_) + revocationList(middle_);
  for (const std::string& content :
       {std::string(), std::string("x"), root_.certificatePem(), good.substr(0, good.size() - 40),
        revocationList(root_, {nullptr, -60, 60, nullptr, true}) + "x"}) {
    trust_.write("certs/a.crl", content);
    EXPECT_EQ(problem(), "is signed, but certs/a.crl is no list of revoked certificates") << content.size();
  }
  trust_.write("certs/a.crl", good);
  EXPECT_EQ(problem(), "");
  trust_.write("certs/.hidden.crl", "x");
  EXPECT_EQ(problem(), "");
  trust_.write("certs/b.crl/file", "");
  EXPECT_EQ(problem(), "is signed, but certs/b.crl is no list of revoked certificates");
}

TEST_F(Signature, ThroughAnAuthorityThatIsNotValidNow_NamesIt) {
  for (const auto& [begin, end, text] :
       {std::tuple(-7200L, -3600L, "that expired on "), std::tuple(3600L, 7200L, "that is not valid before ")}) {
    CertificateWish wish = authority("Middle");
    wish.beginsInSeconds = begin;
    wish.endsInSeconds = end;
    const Identity middle = makeIdentity(wish, &root_);
    SignatureWish brought;
    brought.intermediate = &middle;
    const std::string problem = problemOf(signatureOf(makeIdentity({}, &middle), kManifest, brought));
    EXPECT_EQ(problem.rfind(std::string("is signed through a certificate ") + text, 0), 0U) << problem;
    EXPECT_NE(problem.find(": \"CN=Middle\""), std::string::npos) << problem;
  }
}

}  // namespace
