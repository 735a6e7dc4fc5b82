// The page with which a terminal answers an upload.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/jxpush/common/log_line.h"

namespace jxpush {

struct AnswerPage {
  bool stored = false;       // "Upload successful": at least one file was stored, and the installer has run
  std::vector<LogLine> log;  // of the installer; empty unless stored
};

// Reads the page strictly: nothing for a page that a terminal does not write. A line is an error or a warning when the
// page marks it so and it begins with "Error:" or "Warning:", or when it is unmarked and begins so; further lines in
// one mark are of the same kind.
[[nodiscard]] std::optional<AnswerPage> parseAnswerPage(const std::string& html);

// True for the page with the upload form that a terminal shows at "/".
[[nodiscard]] bool isFormPage(const std::string& html);

}  // namespace jxpush
