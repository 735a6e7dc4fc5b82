#include "tools/jxpush/output/result_output.h"

#include <cstdio>

#include "tools/jxpush/common/json_line.h"
#include "tools/jxpush/output/install_log.h"

namespace jxpush {

namespace {

void printJson(const nlohmann::json& object) {
  std::printf("%s\n", jsonLine(object).c_str());
  std::fflush(stdout);
}

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
  if (!result.message.empty()) object["message"] = result.message;
  if (!result.outcome.log.empty()) addLog(object, result.outcome.log);
  if (result.outcome.records > 0) {
    object["records"] = result.outcome.records;
    object["sent_again"] = result.outcome.sentAgain;
  }
  if (result.code != ExitCode::kSent || result.dryRun) return object;
  object["seconds"] = result.seconds;
  if (!result.outcome.answer.empty()) object["answer"] = result.outcome.answer;
  return object;
}

const char* plural(std::uint64_t count) { return count == 1 ? "" : "s"; }

// What a sending that failed took: how bad the line is.
void printRecords(const Outcome& outcome) {
  if (outcome.records == 0) return;
  std::fprintf(stderr, "jxpush: %llu record%s sent, %llu of them again\n",
               static_cast<unsigned long long>(outcome.records), plural(outcome.records),
               static_cast<unsigned long long>(outcome.sentAgain));
}

}  // namespace

void printFile(const InputFile& file, bool json) {
  if (json) {
    return printJson({{"event", "file"},
                      {"name", file.name()},
                      {"path", file.path()},
                      {"bytes", file.size()},
                      {"sha256", file.sha256()}});
  }
  std::printf("%s: %llu bytes, sha256 %s\n", file.name().c_str(), static_cast<unsigned long long>(file.size()),
              file.sha256().c_str());
  std::fflush(stdout);
}

void printResult(const Result& result, bool json) {
  if (!json) printLog(result.outcome.log, stdout);
  if (result.code != ExitCode::kSent) std::fprintf(stderr, "jxpush: %s\n", result.message.c_str());
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
  std::printf("\n%s", result.outcome.answer.c_str());
  std::fflush(stdout);
}

}  // namespace jxpush
