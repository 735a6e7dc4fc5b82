// The one way in which the port fails with a reason to tell.
#pragma once

#include <stdexcept>

namespace jxplatform {

// Thrown where something cannot be done and somebody is to be told why; never leaves an interface of the libraries. The
// text is the reason alone, one line without a line feed: whoever catches it knows what was wanted, and for whom.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace jxplatform
