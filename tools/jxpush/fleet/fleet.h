// Sending to many terminals at once.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "tools/jxpush/common/target.h"
#include "tools/jxpush/fleet/job.h"
#include "tools/jxpush/fleet/target_list.h"

namespace jxpush {

struct FleetSettings {
  JobSettings job;
  int jobs = 8;  // over HTTP at once; each serial line is served at once
  ProgressStyle progress = ProgressStyle::kAuto;
  bool json = false;
  bool dryRun = false;
  bool verbose = false;
};

using MakeTarget = std::function<std::unique_ptr<Target>(const NamedTarget&)>;

// Sends `files`, whose digests have been read, to each of `targets`, and prints: progress on standard error; on
// standard output each result as it comes, and the table or the summary. A thread serves one target at a time with a
// connection of its own; the files are shared and only read. `make` is called on these threads. Blocks until all have
// ended. Returns kSent when all succeeded, else kSomeFailed; throws nothing but for want of memory.
[[nodiscard]] ExitCode runFleet(const std::vector<NamedTarget>& targets, const std::vector<InputFile>& files,
                                const FleetSettings& settings, const MakeTarget& make);

}  // namespace jxpush
