// What jxpush prints on standard output.
#pragma once

#include <nlohmann/json_fwd.hpp>
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
  std::vector<std::string> names;  // of the files
  std::uint64_t bytes = 0;
  double seconds = 0;
  Outcome outcome;

  void setCode(ExitCode newCode) {
    code = newCode;
    status = statusWord(newCode);
  }
  void fail(const Problem& problem) {
    code = problem.code();
    status = problem.status();
    message = problem.what();
  }
  void setFiles(const std::vector<InputFile>& opened);
};

// "NAME: 12345 bytes, sha256 …" as text, or {"event":"file",…}.
void printFile(const InputFile& file, bool json);
// The last line: a sentence, which for a failure goes to standard error with a second line that counts the records, or
// {"event":"result",…}.
void printResult(const Result& result, bool json);
// "jxpush: TEXT" on standard error, fit for a user's terminal.
void printComplaint(const std::string& text);
// `object` as a line of standard output.
void printJson(const nlohmann::json& object);
// Adds message, log and records to the object of a result: what every failure and success has.
void addOutcome(nlohmann::json& object, const Result& result);
// "" for 1, else "s".
[[nodiscard]] inline const char* plural(std::uint64_t count) { return count == 1 ? "" : "s"; }

}  // namespace jxpush
