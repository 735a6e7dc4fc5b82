// Why a package is refused, within the installer; never leaves it.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>

namespace jxinstall {

// The text is one line without a line feed, fit to follow "Error: upload-0.zip: "; what came from the package in it has
// gone through base::quotedPrintable().
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The digest, where the cryptographic library gave one. Throws Failure.
[[nodiscard]] inline std::string orFailure(const std::optional<std::string>& digest) {
  if (!digest) throw Failure("the SHA-256 digest cannot be computed");
  return *digest;
}

}  // namespace jxinstall
