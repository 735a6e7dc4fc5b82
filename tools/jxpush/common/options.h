// The command line of jxpush.
#pragma once

#include <string>
#include <vector>

namespace jxpush {

enum class ProgressStyle { kAuto, kTty, kPlain, kJson, kNone };

enum class Command { kSend, kStatus };

struct Options {
  Command command = Command::kSend;
  std::vector<std::string> targets;  // as they were typed
  std::string targetsFile;           // a list of further ones; "-": standard input; empty: none
  std::vector<std::string> files;
  ProgressStyle progress = ProgressStyle::kAuto;
  bool json = false;
  bool dryRun = false;
  bool verbose = false;
  int waitSeconds = 60;
  bool waitGiven = false;
  int silenceSeconds = 900;
  int retries = 0;
  int jobs = 8;

  // Whether the outcome is told for each terminal, with a table or a summary at the end.
  [[nodiscard]] bool severalTargets() const { return targets.size() > 1 || !targetsFile.empty(); }
};

// What the command line asks for.
struct CommandLine {
  Options options;
  bool done = false;  // help or version was printed, or the line is wrong: end with exitCode
  int exitCode = 0;
  std::string complaint;  // what is wrong with the line
};

// Reads the command line; prints the help and the version on standard output.
[[nodiscard]] CommandLine readCommandLine(int argc, char** argv);

}  // namespace jxpush
