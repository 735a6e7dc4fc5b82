// Signing a manifest.
#pragma once

#include <string>

namespace jxpack {

// A detached CMS signature (DER) of the bytes `manifest` by the private key in the file `keyPath`, with the certificate
// that stands first in `certificatePath` and those that follow it (both PEM; the key without a passphrase). The
// signature names its time: now, or $SOURCE_DATE_EPOCH (seconds since 1970) where that is set. Throws Problem: exit
// code 3 when a file cannot be read, 4 when key or certificate do not serve.
[[nodiscard]] std::string sign(const std::string& manifest, const std::string& keyPath,
                               const std::string& certificatePath);

}  // namespace jxpack
