#include <clocale>
#include <csignal>
#include <cstdio>
#include <exception>
#include <vector>

#include "tools/jxpush/common/options.h"
#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/common/stop_signals.h"
#include "tools/jxpush/fleet/fleet.h"
#include "tools/jxpush/fleet/report.h"
#include "tools/jxpush/http/status.h"
#include "tools/jxpush/make_target.h"
#include "tools/jxpush/output/progress.h"
#include "tools/jxpush/output/result_output.h"

namespace jxpush {

namespace {

NamedTarget readTarget(const std::string& typed) {
  NamedTarget target;
  target.address = fullAddress(typed);
  target.key = addressKey(target.address);
  target.name = typed;
  target.serial = isSerialAddress(target.address);
  return target;
}

class Sending {
 public:
  explicit Sending(const Options& options) : options_(options) {
    result_.dryRun = options.dryRun;
    targetOptions_.waitSeconds = options.waitSeconds;
    targetOptions_.waitForDoor = options.waitGiven;
    targetOptions_.silenceSeconds = options.silenceSeconds;
  }

  int run() {
    try {
      const std::vector<NamedTarget> targets = collectTargets(options_, readTarget);
      targetOptions_.stopFd = catchStopSignals();
      if (options_.severalTargets()) return static_cast<int>(pushToAll(targets));
      push(targets.front());
    } catch (const Problem& problem) {
      result_.fail(problem);
    } catch (const std::exception& failure) {
      result_.setCode(ExitCode::kGaveUp);
      result_.message = failure.what();
    }
    if (options_.severalTargets()) {
      printComplaint(result_.message);
      if (options_.json) printSummaryObject(result_);
    } else {
      printResult(result_, options_.json);
    }
    return static_cast<int>(result_.code);
  }

 private:
  JobSettings job() const { return {options_.retries, targetOptions_.stopFd}; }

  void openFiles() {
    files_.reserve(options_.files.size());
    for (const std::string& path : options_.files) files_.emplace_back(path);
    result_.setFiles(files_);
  }

  void readDigests() {
    const int stopFd = targetOptions_.stopFd;
    for (InputFile& file : files_) {
      file.readDigest([stopFd] { return stopAsked(stopFd); });
      printFile(file, options_.json);
    }
  }

  // Fills the result as far as it gets.
  void push(const NamedTarget& named) {
    const std::unique_ptr<Target> target = makeTarget(named.address, targetOptions_);
    openFiles();
    try {
      target->check(files_);
    } catch (const Problem& problem) {
      // The sending looks again.
      if (options_.dryRun || options_.retries == 0 || !problem.mayPass()) throw;
    }
    readDigests();
    if (options_.dryRun) return;
    const std::unique_ptr<ProgressReporter> reporter = makeReporter(options_.progress, stderr);
    reporter->setTotal(result_.bytes);
    runJob(*target, files_, job(), *reporter, printComplaint, result_);
  }

  ExitCode pushToAll(const std::vector<NamedTarget>& targets) {
    openFiles();
    readDigests();
    FleetSettings settings;
    settings.job = job();
    settings.jobs = options_.jobs;
    settings.progress = options_.progress;
    settings.json = options_.json;
    settings.dryRun = options_.dryRun;
    settings.verbose = options_.verbose;
    return runFleet(targets, files_, settings,
                    [this](const NamedTarget& target) { return makeTarget(target.address, targetOptions_); });
  }

  const Options& options_;
  TargetOptions targetOptions_;
  std::vector<InputFile> files_;
  Result result_;
};

int refuseLine(const CommandLine& line) {
  Result result;
  result.setCode(ExitCode::kUsage);
  result.message = line.complaint + "; see jxpush --help";
  const bool several = line.options.json && line.options.severalTargets();
  if (several) printComplaint(result.message);
  several ? printSummaryObject(result) : printResult(result, line.options.json);
  return line.exitCode;
}

int askForStatus(Options options) {
  Result result;
  try {
    options.targets.front() = fullAddress(options.targets.front());
    return showStatus(options);
  } catch (const Problem& problem) {
    result.fail(problem);
  }
  printResult(result, options.json);
  return static_cast<int>(result.code);
}

int run(int argc, char** argv) {
  // Which characters the user's terminal shows. Numbers stay as they are.
  std::setlocale(LC_CTYPE, "");
  // A reader of our output that goes away must not end the sending in the middle.
  std::signal(SIGPIPE, SIG_IGN);
  const CommandLine line = readCommandLine(argc, argv);
  if (line.done) return line.complaint.empty() ? line.exitCode : refuseLine(line);
  if (line.options.command == Command::kStatus) return askForStatus(line.options);
  return Sending(line.options).run();
}

}  // namespace

}  // namespace jxpush

int main(int argc, char** argv) { return jxpush::run(argc, argv); }
