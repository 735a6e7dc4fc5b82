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

// Writes the log with a mark before each line: "!! " error, " ! " warning, blanks otherwise; in colour on a terminal.
// Control characters become "?".
void printLog(const std::vector<LogLine>& log, std::FILE* stream);

}  // namespace jxpush
