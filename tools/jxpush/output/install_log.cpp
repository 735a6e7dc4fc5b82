#include "tools/jxpush/output/install_log.h"

#include <algorithm>

#include "base/text.h"
#include "tools/jxpush/common/display_text.h"

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

const char* verdictWord(Verdict verdict) {
  switch (verdict) {
    case Verdict::kInstalled:
      return "installed";
    case Verdict::kRefused:
      return "refused";
    case Verdict::kNotInstalled:
      return "not-installed";
    case Verdict::kOnScreen:
      return "on-screen";
    default:
      return "unknown";
  }
}

std::vector<Verdict> verdictsOf(const std::vector<InputFile>& files, const std::vector<LogLine>& log) {
  std::vector<Verdict> verdicts(files.size(), Verdict::kUnknown);
  if (!tellsArchives(log)) return verdicts;
  for (std::size_t i = 0; i < files.size(); ++i) {
    const std::string archive = "upload-" + std::to_string(i) + ".zip";
    bool about = false;
    for (const LogLine& line : log) {
      if (base::beginsWith(line.text, kPackage)) about = line.text == packageLine(i, files[i]);
      if (line.kind == LogLine::Kind::List) about = false;
      if (about && verdicts[i] == Verdict::kUnknown) verdicts[i] = Verdict::kInstalled;
      const bool named = line.text.find(archive + ':') != std::string::npos;
      if (line.kind == LogLine::Kind::Error && (about || named)) verdicts[i] = Verdict::kRefused;
    }
  }
  return verdicts;
}

std::vector<std::string> installedOf(const std::vector<LogLine>& log) {
  std::vector<std::string> found;
  for (const LogLine& line : log) {
    const std::size_t begin = line.text.find_first_not_of(' ');
    const bool entry = line.kind == LogLine::Kind::List && begin != 0 && begin != std::string::npos;
    if (entry && line.text[begin] != '(') found.push_back(line.text.substr(begin));
  }
  return found;
}

std::string withOwnNames(const std::string& text, const std::vector<std::string>& names) {
  static const std::string kBegin = "upload-";
  static const std::string kEnd = ".zip";
  std::string shown;
  std::size_t done = 0;
  for (std::size_t at = text.find(kBegin); at != std::string::npos; at = text.find(kBegin, at + 1)) {
    const std::size_t number = at + kBegin.size();
    const std::size_t end = text.find_first_not_of("0123456789", number);
    constexpr std::size_t kMostDigits = 6;
    if (end == std::string::npos || end == number || end - number > kMostDigits) continue;
    const std::size_t index = std::stoul(text.substr(number, end - number));
    if (text.compare(end, kEnd.size(), kEnd) != 0 || index >= names.size()) continue;
    shown += text.substr(done, at - done) + names[index];
    done = end + kEnd.size();
  }
  return shown + text.substr(done);
}

void printLog(const std::vector<LogLine>& log, const std::vector<std::string>& names, std::FILE* stream,
              const std::string& prefix) {
  const bool colours = getsColours(stream);
  for (const LogLine& line : log) {
    const Look look = lookOf(line.kind);
    const bool coloured = colours && *look.colour != '\0';
    const std::string text = displayText(withOwnNames(line.text, names), stream);
    std::fprintf(stream, "%s%s%s%s%s\n", prefix.c_str(), coloured ? look.colour : "", look.mark, text.c_str(),
                 coloured ? "\033[0m" : "");
  }
  std::fflush(stream);
}

}  // namespace jxpush
