// What jxpush prints on standard output.
#pragma once

#include <string>
#include <vector>

#include "tools/jxpush/common/input_file.h"
#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/common/target.h"

namespace jxpush {

// How the program ended.
struct Result {
  ExitCode code = ExitCode::kSent;
  const char* status = statusWord(ExitCode::kSent);
  std::string message;
  bool dryRun = false;
  std::size_t files = 0;
  std::uint64_t bytes = 0;
  double seconds = 0;
  Outcome outcome;

  void setCode(ExitCode newCode) {
    code = newCode;
    status = statusWord(newCode);
  }
};

// "NAME: 12345 bytes, sha256 …" as text, or {"event":"file",…}.
void printFile(const InputFile& file, bool json);
// The last line: a sentence, which for a failure goes to standard error with a second line that counts the records, or
// {"event":"result",…}.
void printResult(const Result& result, bool json);

}  // namespace jxpush
