#include "tools/jxpush/fleet/job.h"

#include <algorithm>
#include <exception>

#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/common/stop_signals.h"
#include "tools/jxpush/output/install_log.h"

namespace jxpush {

namespace {

constexpr int kLongestPause = 60;
constexpr int kMostDoublings = 6;

// A terminal may answer that it took the upload and yet have installed less, or something else.
void judge(const std::vector<InputFile>& files, Result& result) {
  const std::string complaint = complaintOf(files, result.outcome.log);
  if (complaint.empty()) return;
  result.setCode(ExitCode::kNotInstalled);
  result.message = complaint;
}

// One sending. True when it failed in a way that may pass.
bool attempt(Target& target, const std::vector<InputFile>& files, ProgressReporter& reporter, Result& result) {
  result.outcome = Outcome();
  bool again = false;
  try {
    target.send(files, reporter, result.outcome);
    result.setCode(ExitCode::kSent);
    result.message.clear();
    judge(files, result);
  } catch (const Problem& problem) {
    result.fail(problem);
    again = problem.mayPass();
  } catch (const std::exception& failure) {
    result.setCode(ExitCode::kGaveUp);
    result.message = failure.what();
  }
  reporter.end();
  result.seconds = reporter.seconds();
  return again;
}

}  // namespace

void runJob(Target& target, const std::vector<InputFile>& files, const JobSettings& settings,
            ProgressReporter& reporter, const TellPause& tellPause, Result& result) {
  for (int done = 0; attempt(target, files, reporter, result) && done < settings.retries; ++done) {
    const int pause = std::min(kLongestPause, 1 << std::min(done, kMostDoublings));
    tellPause(result.message + "; trying again in " + std::to_string(pause) + " s (" + std::to_string(done + 1) +
              " of " + std::to_string(settings.retries) + ")");
    if (stopAskedWithin(settings.stopFd, pause * 1000)) {
      result.setCode(ExitCode::kInterrupted);
      result.message = "interrupted before the terminal was tried again";
      return;
    }
    reporter.startOver();
  }
}

}  // namespace jxpush
