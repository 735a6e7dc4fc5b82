// Why a package is refused, within the installer; never leaves it.
#pragma once

#include <stdexcept>

namespace jxinstall {

// The text is one line without a line feed, fit to follow "Error: upload-0.zip: "; what came from the package in it has
// gone through base::quotedPrintable().
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace jxinstall
