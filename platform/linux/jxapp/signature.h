// Who signed a package.
#pragma once

#include <optional>
#include <string>

namespace jxinstall {

// What is wrong with `signature`, a detached CMS signature (DER) of the bytes `manifest`, as the end of a sentence that
// begins with the package's name and version; empty when nothing is: every signer's signature fits the manifest, and
// each signer's certificate is valid now and chains to a certificate in certs/ below `root`. A signer's certificate
// that limits its use must allow digital signatures and code signing or mail protection. One text for each cause:
//   is not signed
//   has a signature that is not a detached CMS signature in DER
//   has a signature for another manifest
//   has a signature that does not match the signer's key
//   is signed without the signer's certificate
//   is signed with SHA1, which is too weak
//   is signed by a certificate that expired on TIME: SUBJECT
//   is signed by a certificate that is not valid before TIME: SUBJECT
//   is signed by a certificate that does not chain to one in certs/: SUBJECT
//   is signed by a certificate that is not accepted (REASON): SUBJECT
[[nodiscard]] std::string signatureProblem(const std::string& root, const std::string& manifest,
                                           const std::optional<std::string>& signature);

}  // namespace jxinstall
