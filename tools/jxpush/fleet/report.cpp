#include "tools/jxpush/fleet/report.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "tools/jxpush/common/display_text.h"
#include "tools/jxpush/fleet/screen.h"
#include "tools/jxpush/output/install_log.h"

namespace jxpush {

namespace {

std::string wordOf(const Result& result) {
  return result.dryRun && result.code == ExitCode::kSent ? "checked" : result.status;
}

std::string join(const std::vector<std::string>& parts) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : ", ") + part;
  return text;
}

// What became of the files of a sending that got no log.
Verdict verdictWithoutLog(const Result& result) {
  if (result.code == ExitCode::kSent && !result.dryRun) {
    return result.outcome.onScreenAlone ? Verdict::kOnScreen : Verdict::kUnknown;
  }
  const bool mayHaveThem = result.code == ExitCode::kUnknown || result.code == ExitCode::kGaveUp ||
                           result.code == ExitCode::kInterrupted || result.code == ExitCode::kInput;
  return mayHaveThem ? Verdict::kUnknown : Verdict::kNotInstalled;
}

std::string timeText(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", seconds);
  return text;
}

std::string padded(const std::string& text, std::size_t columns) {
  const std::size_t taken = columnsOf(text);
  return text + std::string(taken < columns ? columns - taken : 0, ' ');
}

}  // namespace

FleetRow rowOf(const Result& result) {
  FleetRow row;
  row.begun = true;
  row.code = result.code;
  row.result = wordOf(result);
  row.seconds = result.seconds;
  if (result.code != ExitCode::kSent) {
    row.detail = result.message;
  } else if (result.outcome.onScreenAlone) {
    row.detail = "see its screen";
  } else {
    row.detail = join(installedOf(result.outcome.log));
  }
  return row;
}

void printTargetObject(const NamedTarget& target, const std::vector<InputFile>& files, const Result& result) {
  const std::vector<Verdict> verdicts = result.outcome.log.empty()
                                            ? std::vector<Verdict>(files.size(), verdictWithoutLog(result))
                                            : verdictsOf(files, result.outcome.log);
  nlohmann::json list = nlohmann::json::array();
  for (std::size_t i = 0; i < files.size(); ++i) {
    list.push_back({{"name", files[i].name()}, {"verdict", verdictWord(verdicts[i])}});
  }
  nlohmann::json object = {{"event", "target"},
                           {"target", target.address},
                           {"name", target.name},
                           {"status", wordOf(result)},
                           {"code", static_cast<int>(result.code)},
                           {"seconds", result.seconds},
                           {"files", std::move(list)},
                           {"installed", installedOf(result.outcome.log)}};
  addOutcome(object, result);
  printJson(object);
}

void printTable(const std::vector<NamedTarget>& targets, const std::vector<FleetRow>& rows, const FleetTotal& total) {
  const std::string nameHead = "TARGET";
  const std::string resultHead = "RESULT";
  std::size_t names = nameHead.size();
  std::size_t results = resultHead.size();
  for (std::size_t i = 0; i < rows.size(); ++i) {
    names = std::max(names, columnsOf(shownName(targets[i], stdout)));
    results = std::max(results, rows[i].result.size());
  }
  std::printf("%s  CODE  %s  %8s  INSTALLED\n", padded(nameHead, names).c_str(), padded(resultHead, results).c_str(),
              "TIME");
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const FleetRow& row = rows[i];
    std::printf("%s  %4d  %s  %8s  %s\n", padded(shownName(targets[i], stdout), names).c_str(),
                static_cast<int>(row.code), padded(row.result, results).c_str(), timeText(row.seconds).c_str(),
                displayText(row.detail, stdout).c_str());
  }
  std::printf("%s %zu of %zu terminals in %s\n", total.dryRun ? "Would send to" : "Sent to", total.succeeded,
              rows.size(), timeText(total.seconds).c_str());
  std::fflush(stdout);
}

void printSummaryObject(const std::vector<FleetRow>& rows, const FleetTotal& total) {
  const bool all = total.succeeded == rows.size();
  const ExitCode code = all ? ExitCode::kSent : ExitCode::kSomeFailed;
  printJson({{"event", "summary"},
             {"status", all && total.dryRun ? "checked" : statusWord(code)},
             {"code", static_cast<int>(code)},
             {"targets", rows.size()},
             {"succeeded", total.succeeded},
             {"failed", rows.size() - total.succeeded},
             {"seconds", total.seconds}});
}

void printSummaryObject(const Result& result) {
  printJson({{"event", "summary"},
             {"status", result.status},
             {"code", static_cast<int>(result.code)},
             {"message", result.message}});
}

}  // namespace jxpush
