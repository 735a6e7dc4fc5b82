// How jxpush ends, and the failure that leads there.
#pragma once

#include <stdexcept>
#include <string>

namespace jxpush {

// The exit codes of the program.
enum class ExitCode : int {
  kSent = 0,
  kUsage = 2,    // wrong command line
  kInput = 10,   // an input file cannot be read, or changed while it was sent
  kNoPort = 20,  // there is no such port, the terminal is unreachable, or the connection broke with nothing sent whole
  kBusy = 21,    // another program has the port
  kNoPermission = 22,  // the port may not be opened
  kGaveUp = 30,        // the terminal did not answer or too many records failed; the upload was refused
  kRefused = 34,       // the terminal refused or aborted the download
  kNotInstalled = 40,  // the installer reported an error
  kUnknown = 41,       // the connection broke when the terminal had at least one whole file
  kSomeFailed = 50,    // of several terminals at least one
  kInterrupted = 130,
};

// The word that stands for a code in machine-readable output.
[[nodiscard]] inline const char* statusWord(ExitCode code) {
  switch (code) {
    case ExitCode::kSent:
      return "sent";
    case ExitCode::kUsage:
      return "usage";
    case ExitCode::kInput:
      return "input";
    case ExitCode::kNoPort:
      return "no-port";
    case ExitCode::kBusy:
      return "busy";
    case ExitCode::kNoPermission:
      return "no-permission";
    case ExitCode::kGaveUp:
      return "gave-up";
    case ExitCode::kRefused:
      return "refused";
    case ExitCode::kNotInstalled:
      return "not-installed";
    case ExitCode::kUnknown:
      return "unknown";
    case ExitCode::kSomeFailed:
      return "some-failed";
    case ExitCode::kInterrupted:
      return "interrupted";
  }
  return "unknown";
}

// A failure with the exit code that it leads to and a message for the user.
class Problem : public std::runtime_error {
 public:
  Problem(ExitCode code, const std::string& message) : Problem(code, message, statusWord(code)) {}
  // `status`, a literal, in place of the code's own word.
  Problem(ExitCode code, const std::string& message, const char* status)
      : std::runtime_error(message), code_(code), status_(status) {}
  // The same failure, after which another attempt would do harm or end in the same way.
  [[nodiscard]] Problem forGood() const {
    Problem same = *this;
    same.forGood_ = true;
    return same;
  }
  [[nodiscard]] ExitCode code() const { return code_; }
  [[nodiscard]] const char* status() const { return status_; }
  // Whether the same may succeed a little later: nothing was installed, and nobody gave a verdict.
  [[nodiscard]] bool mayPass() const {
    return !forGood_ && (code_ == ExitCode::kNoPort || code_ == ExitCode::kBusy || code_ == ExitCode::kGaveUp);
  }

 private:
  ExitCode code_;
  const char* status_;
  bool forGood_ = false;
};

}  // namespace jxpush
