#include "tools/jxpush/fleet/fleet.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <system_error>
#include <thread>

#include "tools/jxpush/common/display_text.h"
#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/common/stop_signals.h"
#include "tools/jxpush/fleet/report.h"
#include "tools/jxpush/fleet/screen.h"
#include "tools/jxpush/output/install_log.h"

namespace jxpush {

namespace {

using Clock = std::chrono::steady_clock;

class Fleet {
 public:
  Fleet(const std::vector<NamedTarget>& targets, const std::vector<InputFile>& files, const FleetSettings& settings,
        const MakeTarget& make)
      : targets_(targets),
        files_(files),
        settings_(settings),
        make_(make),
        screen_(styleFor(settings.progress, stderr), stderr, targets),
        rows_(targets.size()) {
    for (std::size_t i = 0; i < targets.size(); ++i) (targets[i].serial ? serial_ : http_).push_back(i);
  }

  ExitCode run() {
    const Clock::time_point began = Clock::now();
    std::vector<std::function<void()>> duties;
    duties.reserve(targets_.size());
    for (const std::size_t target : serial_) duties.emplace_back([this, target] { serve(target); });
    const std::size_t workers = std::min(http_.size(), static_cast<std::size_t>(settings_.jobs));
    for (std::size_t i = 0; i < workers; ++i) duties.emplace_back([this] { serveInTurn(); });
    runAtOnce(duties);
    screen_.close();
    return report(std::chrono::duration<double>(Clock::now() - began).count());
  }

 private:
  // Where the system has no thread left, the rest is done one after the other.
  static void runAtOnce(const std::vector<std::function<void()>>& duties) {
    std::vector<std::thread> threads;
    std::size_t started = 0;
    try {
      threads.reserve(duties.size());
      for (; started < duties.size(); ++started) threads.emplace_back(duties[started]);
    } catch (const std::system_error&) {
      for (; started < duties.size(); ++started) duties[started]();
    }
    for (std::thread& thread : threads) thread.join();
  }

  void serveInTurn() {
    for (std::size_t turn = nextHttp_++; turn < http_.size(); turn = nextHttp_++) serve(http_[turn]);
  }

  void serve(std::size_t index) {
    Result result;
    result.dryRun = settings_.dryRun;
    try {
      result.setFiles(files_);
      send(index, result);
    } catch (const Problem& problem) {
      result.fail(problem);
    } catch (const std::exception& failure) {
      result.setCode(ExitCode::kGaveUp);
      result.message = failure.what();
    }
    rows_[index] = rowOf(result);
    screen_.end(index, result.code == ExitCode::kSent, [&] { tell(index, result); });
  }

  void send(std::size_t index, Result& result) {
    if (stopAsked(settings_.job.stopFd)) {
      throw Problem(ExitCode::kInterrupted, "interrupted before its turn; nothing was sent to it");
    }
    const std::unique_ptr<Target> target = make_(targets_[index]);
    if (settings_.dryRun) return target->check(files_);
    const std::unique_ptr<ProgressReporter> reporter = screen_.begin(index);
    reporter->setTotal(result.bytes);
    const TellPause tellPause = [this, index](const std::string& text) { screen_.tellPause(index, text); };
    runJob(*target, files_, settings_.job, *reporter, tellPause, result);
  }

  // Called by the screen, one at a time.
  void tell(std::size_t index, const Result& result) const {
    const bool failed = result.code != ExitCode::kSent;
    const NamedTarget& target = targets_[index];
    if (failed) {
      printComplaint(target.name + ": " + result.message);
    } else if (screen_.style() == ProgressStyle::kPlain && !settings_.dryRun) {
      std::fprintf(stderr, "%s: sent in %.1f s\n", shownName(target, stderr).c_str(), result.seconds);
    }
    if (settings_.json) {
      printTargetObject(target, files_, result);
    } else if (failed || settings_.verbose) {
      printLog(result.outcome.log, result.names, stdout, shownName(target, stdout) + ": ");
    }
  }

  ExitCode report(double seconds) const {
    FleetTotal total;
    total.seconds = seconds;
    total.dryRun = settings_.dryRun;
    total.succeeded = static_cast<std::size_t>(
        std::count_if(rows_.begin(), rows_.end(), [](const FleetRow& row) { return row.code == ExitCode::kSent; }));
    if (settings_.json) {
      printSummaryObject(rows_, total);
    } else {
      printTable(targets_, rows_, total);
    }
    return total.succeeded == rows_.size() ? ExitCode::kSent : ExitCode::kSomeFailed;
  }

  const std::vector<NamedTarget>& targets_;
  const std::vector<InputFile>& files_;
  const FleetSettings& settings_;
  const MakeTarget& make_;
  FleetScreen screen_;
  std::vector<FleetRow> rows_;  // each written by the thread that serves the target, and read when all have ended
  std::vector<std::size_t> serial_;
  std::vector<std::size_t> http_;
  std::atomic<std::size_t> nextHttp_{0};
};

}  // namespace

ExitCode runFleet(const std::vector<NamedTarget>& targets, const std::vector<InputFile>& files,
                  const FleetSettings& settings, const MakeTarget& make) {
  return Fleet(targets, files, settings, make).run();
}

}  // namespace jxpush
