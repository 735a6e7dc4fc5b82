// Sending to one terminal, as often as it takes.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/jxpush/common/target.h"
#include "tools/jxpush/output/progress.h"
#include "tools/jxpush/output/result_output.h"

namespace jxpush {

struct JobSettings {
  int retries = 0;
  int stopFd = -1;  // readable once the user has interrupted; -1: never
};

// Told before each pause why there is one, and how long it takes.
using TellPause = std::function<void(const std::string&)>;

// Sends `files` and fills `result`, whatever happens: nothing is thrown. What may pass is tried again, after 1, 2, 4
// and so on to 60 seconds. Blocks.
void runJob(Target& target, const std::vector<InputFile>& files, const JobSettings& settings,
            ProgressReporter& reporter, const TellPause& tellPause, Result& result);

}  // namespace jxpush
