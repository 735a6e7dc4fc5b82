// The command line of jxpush.
#pragma once

#include <string>
#include <vector>

namespace jxpush {

enum class ProgressStyle { kAuto, kTty, kPlain, kJson, kNone };

enum class Command { kSend, kStatus };

struct Options {
  Command command = Command::kSend;
  std::string target;
  std::vector<std::string> files;
  ProgressStyle progress = ProgressStyle::kAuto;
  bool json = false;
  bool dryRun = false;
  int waitSeconds = 60;
  int silenceSeconds = 900;
};

// What the command line asks for.
struct CommandLine {
  Options options;
  bool done = false;  // help or version was printed, or the line is wrong: end with exitCode
  int exitCode = 0;
};

// Reads the command line; prints the help on standard output, what is wrong with it on standard error.
[[nodiscard]] CommandLine readCommandLine(int argc, char** argv);

}  // namespace jxpush
