#include "tools/jxpush/output/result_output.h"

#include <cstdio>

#include "tools/jxpush/common/display_text.h"
#include "tools/jxpush/common/json_line.h"
#include "tools/jxpush/output/install_log.h"

namespace jxpush {

namespace {

void addLog(nlohmann::json& object, const std::vector<LogLine>& log) {
  object["log"] = nlohmann::json::array();
  for (const LogLine& line : log) object["log"].push_back({{"kind", kindWord(line.kind)}, {"text", line.text}});
  object["errors"] = countOf(log, LogLine::Kind::Error);
  object["warnings"] = countOf(log, LogLine::Kind::Warning);
}

nlohmann::json toJson(const Result& result) {
  nlohmann::json object = {{"event", "result"},
                           {"status", result.dryRun && result.code == ExitCode::kSent ? "checked" : result.status},
                           {"code", static_cast<int>(result.code)},
                           {"files", result.files},
                           {"bytes", result.bytes}};
  addOutcome(object, result);
  if (result.code == ExitCode::kSent && !result.dryRun) object["seconds"] = result.seconds;
  return object;
}

// What a sending that failed took: how bad the line is.
void printRecords(const Outcome& outcome) {
  if (outcome.records == 0) return;
  std::fprintf(stderr, "jxpush: %llu record%s sent, %llu of them again\n",
               static_cast<unsigned long long>(outcome.records), plural(outcome.records),
               static_cast<unsigned long long>(outcome.sentAgain));
}

}  // namespace

void Result::setFiles(const std::vector<InputFile>& opened) {
  files = opened.size();
  bytes = 0;
  names.clear();
  for (const InputFile& file : opened) {
    bytes += file.size();
    names.push_back(file.name());
  }
}

void printComplaint(const std::string& text) {
  std::fprintf(stderr, "jxpush: %s\n", displayText(text, stderr).c_str());
}

void printJson(const nlohmann::json& object) {
  std::printf("%s\n", jsonLine(object, stdout).c_str());
  std::fflush(stdout);
}

void addOutcome(nlohmann::json& object, const Result& result) {
  if (!result.message.empty()) object["message"] = result.message;
  if (!result.outcome.log.empty()) addLog(object, result.outcome.log);
  if (result.outcome.records == 0) return;
  object["records"] = result.outcome.records;
  object["sent_again"] = result.outcome.sentAgain;
}

void printFile(const InputFile& file, bool json) {
  if (json) {
    return printJson({{"event", "file"},
                      {"name", file.name()},
                      {"path", file.path()},
                      {"bytes", file.size()},
                      {"sha256", file.sha256()}});
  }
  std::printf("%s: %llu bytes, sha256 %s\n", displayText(file.name(), stdout).c_str(),
              static_cast<unsigned long long>(file.size()), file.sha256().c_str());
  std::fflush(stdout);
}

void printResult(const Result& result, bool json) {
  if (!json) printLog(result.outcome.log, result.names, stdout);
  if (result.code != ExitCode::kSent) printComplaint(result.message);
  if (json) return printJson(toJson(result));
  if (result.code != ExitCode::kSent) return printRecords(result.outcome);
  std::printf("%s %zu file%s, %llu bytes", result.dryRun ? "Would send" : "Sent", result.files, plural(result.files),
              static_cast<unsigned long long>(result.bytes));
  if (!result.dryRun) {
    std::printf(" in %.1f s", result.seconds);
  }
  if (!result.dryRun && result.outcome.records > 0) {
    std::printf(", %llu record%s sent again", static_cast<unsigned long long>(result.outcome.sentAgain),
                plural(result.outcome.sentAgain));
  }
  const bool onScreen = !result.dryRun && result.outcome.onScreenAlone;
  std::printf("\n%s", onScreen ? "The terminal's screen shows whether it was installed\n" : "");
  std::fflush(stdout);
}

}  // namespace jxpush
