// The terminal's installation log: what it means, and how it is shown.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "tools/jxpush/common/input_file.h"
#include "tools/jxpush/common/log_line.h"

namespace jxpush {

// "text", "error", "warning" or "list".
[[nodiscard]] const char* kindWord(LogLine::Kind kind);

[[nodiscard]] std::size_t countOf(const std::vector<LogLine>& log, LogLine::Kind kind);

// What speaks against the files having been installed as they were sent: error lines; or, from an installer that tells
// number, size and SHA-256 of each archive it received ("Package upload-0.zip: 7 bytes, sha256 ..."), a file that is
// missing there or differs. Empty when nothing does. The files' digests have been read.
[[nodiscard]] std::string complaintOf(const std::vector<InputFile>& files, const std::vector<LogLine>& log);

// What became of a file, as the log tells it.
enum class Verdict {
  kInstalled,
  kRefused,       // an error line speaks of it
  kNotInstalled,  // it did not come so far
  kOnScreen,      // sent; the terminal's screen tells the rest
  kUnknown,
};

// "installed", "refused", "not-installed", "on-screen" or "unknown".
[[nodiscard]] const char* verdictWord(Verdict verdict);

// The verdict on each file of a sending that got a log: the lines from that of its archive to the next, and error lines
// that name its archive. kUnknown for all of them where the installer tells no archives.
[[nodiscard]] std::vector<Verdict> verdictsOf(const std::vector<InputFile>& files, const std::vector<LogLine>& log);

// The applications that the log lists as installed at its end, "hello 1.0.0" for one.
[[nodiscard]] std::vector<std::string> installedOf(const std::vector<LogLine>& log);

// `text` with the name of each file that was sent in place of the one that the terminal stored it under
// ("upload-1.zip").
[[nodiscard]] std::string withOwnNames(const std::string& text, const std::vector<std::string>& names);

// Writes the log with a mark before each line: "!! " error, " ! " warning, blanks otherwise; in colour on a terminal.
// `names` are those of the files that were sent. `prefix`, fit for a user's terminal, stands before each line.
void printLog(const std::vector<LogLine>& log, const std::vector<std::string>& names, std::FILE* stream,
              const std::string& prefix = "");

}  // namespace jxpush
