// Why no package is made.
#pragma once

#include <stdexcept>
#include <string>

namespace jxpack {

// The exit codes of jxpack.
enum class ExitCode {
  kDone = 0,
  kRefused = 1,  // the installer would refuse it, or it would give a private key away
  kUsage = 2,    // the command line, or what the folder says of its package, is wrong
  kFile = 3,     // a file cannot be read or written, or is there already
  kSigning = 4   // key or certificate do not serve
};

// The text is one line for the operator.
class Problem : public std::runtime_error {
 public:
  Problem(ExitCode code, const std::string& text) : std::runtime_error(text), code_(code) {}
  [[nodiscard]] ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

}  // namespace jxpack
