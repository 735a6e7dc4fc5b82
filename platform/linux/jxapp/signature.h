// Who signed a package.
#pragma once

#include <optional>
#include <string>

namespace jxinstall {

// What is wrong with `signature`, a detached CMS signature (DER) of the bytes `manifest`, as the end of a sentence that
// begins with the package's name and version; empty when nothing is: every signer's signature fits the manifest, and
// each signer's certificate is valid now and chains to a certificate in the folder `certs` (*.pem). A signer's
// certificate that limits its use must allow digital signatures and code signing or mail protection. As soon as the
// folder has a list of revoked certificates (*.crl, PEM or DER), each certificate of the chain but the last, which the
// folder vouches for, has to be covered by a valid list of its issuer. One text for each cause; in those that end in a
// subject, "by" becomes "through" where the certificate is not the signer's own:
//   is not signed
//   has a signature that is not a detached CMS signature in DER
//   has a signature for another manifest
//   has a signature that does not match the signer's key
//   is signed without the signer's certificate
//   is signed with SHA1, which is too weak
//   is signed by a certificate that expired on TIME: SUBJECT
//   is signed by a certificate that is not valid before TIME: SUBJECT
//   is signed by a certificate that was revoked on TIME: SUBJECT
//   is signed by a certificate that no revocation list in certs/ covers: SUBJECT
//   is signed by a certificate whose revocation list in certs/ expired on TIME: SUBJECT
//   is signed by a certificate whose revocation list in certs/ is not valid before TIME: SUBJECT
//   is signed by a certificate whose revocation list in certs/ is not signed by its issuer: SUBJECT
//   is signed, but certs/NAME is no list of revoked certificates
//   is signed, but the revocation lists in certs/ cannot be read
//   is signed by a certificate that does not chain to one in certs/: SUBJECT
//   is signed by a certificate that is not accepted (REASON): SUBJECT
[[nodiscard]] std::string signatureProblem(const std::string& certs, const std::string& manifest,
                                           const std::optional<std::string>& signature);

}  // namespace jxinstall
