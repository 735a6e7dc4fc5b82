// What is printed of many sendings: each result as it comes, and all of them at the end.
#pragma once

#include <string>
#include <vector>

#include "tools/jxpush/fleet/target_list.h"
#include "tools/jxpush/output/result_output.h"

namespace jxpush {

// A line of the table.
struct FleetRow {
  bool begun = false;  // it was tried at all
  ExitCode code = ExitCode::kSent;
  std::string result;  // the word for it
  double seconds = 0;
  std::string detail;  // what the terminal says it has installed, or why it failed
};

// How all ended.
struct FleetTotal {
  std::size_t succeeded = 0;
  double seconds = 0;  // for all of them
  bool dryRun = false;
};

[[nodiscard]] FleetRow rowOf(const Result& result);

// {"event":"target",...} for one that ended.
void printTargetObject(const NamedTarget& target, const std::vector<InputFile>& files, const Result& result);
// The table, and a sentence.
void printTable(const std::vector<NamedTarget>& targets, const std::vector<FleetRow>& rows, const FleetTotal& total);
// {"event":"summary",...}: how all ended.
void printSummaryObject(const std::vector<FleetRow>& rows, const FleetTotal& total);
// The same when nothing was sent to anybody, as `result` says.
void printSummaryObject(const Result& result);

}  // namespace jxpush
