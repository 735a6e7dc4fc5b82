#include <csignal>
#include <cstdio>
#include <exception>
#include <vector>

#include "tools/jxpush/common/options.h"
#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/common/stop_signals.h"
#include "tools/jxpush/http/status.h"
#include "tools/jxpush/make_target.h"
#include "tools/jxpush/output/install_log.h"
#include "tools/jxpush/output/progress.h"
#include "tools/jxpush/output/result_output.h"

namespace jxpush {

namespace {

// A terminal may answer that it took the upload and yet have installed less, or something else.
void judge(const std::vector<InputFile>& files, Result& result) {
  const std::string complaint = complaintOf(files, result.outcome.log);
  if (complaint.empty()) return;
  result.setCode(ExitCode::kNotInstalled);
  result.message = complaint;
}

// Fills `result` as far as it gets.
void push(const Options& options, Result& result) {
  TargetOptions targetOptions;
  targetOptions.waitSeconds = options.waitSeconds;
  targetOptions.silenceSeconds = options.silenceSeconds;
  targetOptions.stopFd = catchStopSignals();
  const std::unique_ptr<Target> target = makeTarget(options.target, targetOptions);
  std::vector<InputFile> files;
  files.reserve(options.files.size());
  for (const std::string& path : options.files) files.emplace_back(path);
  result.files = files.size();
  for (const InputFile& file : files) result.bytes += file.size();
  target->check(files);
  const int stopFd = targetOptions.stopFd;
  for (InputFile& file : files) {
    file.readDigest([stopFd] { return stopAsked(stopFd); });
    printFile(file, options.json);
  }
  if (options.dryRun) return;

  const std::unique_ptr<ProgressReporter> reporter = makeReporter(options.progress, stderr);
  reporter->setTotal(result.bytes);
  try {
    target->send(files, *reporter, result.outcome);
  } catch (...) {
    reporter->end();
    throw;
  }
  reporter->end();
  result.seconds = reporter->seconds();
  judge(files, result);
}

int run(int argc, char** argv) {
  // A reader of our output that goes away must not end the sending in the middle.
  std::signal(SIGPIPE, SIG_IGN);
  const CommandLine line = readCommandLine(argc, argv);
  Result result;
  result.dryRun = line.options.dryRun;
  if (line.done && line.exitCode == 0) return 0;
  if (line.done) {
    result.setCode(ExitCode::kUsage);
    result.message = "wrong command line";
    if (line.options.json) printResult(result, true);
    return line.exitCode;
  }
  try {
    if (line.options.command == Command::kStatus) return showStatus(line.options);
    push(line.options, result);
  } catch (const Problem& problem) {
    result.code = problem.code();
    result.status = problem.status();
    result.message = problem.what();
  } catch (const std::exception& failure) {
    result.setCode(ExitCode::kGaveUp);
    result.message = failure.what();
  }
  printResult(result, line.options.json);
  return static_cast<int>(result.code);
}

}  // namespace

}  // namespace jxpush

int main(int argc, char** argv) { return jxpush::run(argc, argv); }
