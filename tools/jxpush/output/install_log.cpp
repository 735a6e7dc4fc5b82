#include "tools/jxpush/output/install_log.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "base/text.h"

namespace jxpush {

namespace {

const std::string kPackage = "Package upload-";

bool tellsArchives(const std::vector<LogLine>& log) {
  return std::any_of(log.begin(), log.end(), [](const LogLine& line) { return base::beginsWith(line.text, kPackage); });
}

// The line that the installer writes for an archive.
std::string packageLine(std::size_t number, const InputFile& file) {
  return kPackage + std::to_string(number) + ".zip: " + std::to_string(file.size()) + " bytes, sha256 " + file.sha256();
}

struct Look {
  const char* mark;
  const char* colour;
};

Look lookOf(LogLine::Kind kind) {
  switch (kind) {
    case LogLine::Kind::Error:
      return {"!! ", "\033[31m"};
    case LogLine::Kind::Warning:
      return {" ! ", "\033[33m"};
    case LogLine::Kind::List:
      return {"   ", "\033[32m"};
    default:
      return {"   ", ""};
  }
}

}  // namespace

const char* kindWord(LogLine::Kind kind) {
  switch (kind) {
    case LogLine::Kind::Error:
      return "error";
    case LogLine::Kind::Warning:
      return "warning";
    case LogLine::Kind::List:
      return "list";
    default:
      return "text";
  }
}

std::size_t countOf(const std::vector<LogLine>& log, LogLine::Kind kind) {
  return static_cast<std::size_t>(
      std::count_if(log.begin(), log.end(), [kind](const LogLine& line) { return line.kind == kind; }));
}

std::string complaintOf(const std::vector<InputFile>& files, const std::vector<LogLine>& log) {
  const auto error =
      std::find_if(log.begin(), log.end(), [](const LogLine& line) { return line.kind == LogLine::Kind::Error; });
  if (error != log.end()) return "the terminal's installer reported an error";
  if (!tellsArchives(log)) return "";
  for (std::size_t i = 0; i < files.size(); ++i) {
    const std::string expected = packageLine(i, files[i]);
    const bool found = std::any_of(log.begin(), log.end(), [&](const LogLine& line) { return line.text == expected; });
    if (!found) return "the terminal's log does not show " + files[i].path() + " as it was sent";
  }
  return "";
}

void printLog(const std::vector<LogLine>& log, std::FILE* stream) {
  const bool colours = isatty(fileno(stream)) != 0 && std::getenv("NO_COLOR") == nullptr;
  for (const LogLine& line : log) {
    const Look look = lookOf(line.kind);
    const bool coloured = colours && *look.colour != '\0';
    // The terminal's text may hold what the user's terminal would obey.
    const std::string text = base::withoutControls(line.text);
    std::fprintf(stream, "%s%s%s%s\n", coloured ? look.colour : "", look.mark, text.c_str(), coloured ? "\033[0m" : "");
  }
  std::fflush(stream);
}

}  // namespace jxpush
