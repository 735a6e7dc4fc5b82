// Why a package is refused, within the installer; never leaves it.
#pragma once

#include <optional>
#include <string>

#include "platform/linux/support/failure.h"

namespace jxinstall {

// The text is fit to follow "Error: upload-0.zip: "; what came from the package in it has gone through
// base::quotedPrintable().
using jxplatform::Failure;

// The digest, where the cryptographic library gave one. Throws Failure.
[[nodiscard]] inline std::string orFailure(const std::optional<std::string>& digest) {
  if (!digest) throw Failure("the SHA-256 digest cannot be computed");
  return *digest;
}

}  // namespace jxinstall
