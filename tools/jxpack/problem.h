// Why no package is made.
#pragma once

#include <stdexcept>
#include <string>

namespace jxpack {

// The exit codes of jxpack.
enum class ExitCode { kDone = 0, kRefused = 1, kUsage = 2, kFile = 3, kSigning = 4 };

// The text is one line for the operator.
class Problem : public std::runtime_error {
 public:
  Problem(ExitCode code, const std::string& text) : std::runtime_error(text), code_(code) {}
  [[nodiscard]] ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

}  // namespace jxpack
