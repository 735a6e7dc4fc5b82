#include "tools/jxpush/common/options.h"

#include <CLI/CLI.hpp>
#include <cstring>
#include <map>

#include "tools/jxpush/common/problem.h"

namespace jxpush {

namespace {

const std::map<std::string, ProgressStyle> kStyles = {{"auto", ProgressStyle::kAuto},
                                                      {"tty", ProgressStyle::kTty},
                                                      {"plain", ProgressStyle::kPlain},
                                                      {"json", ProgressStyle::kJson},
                                                      {"none", ProgressStyle::kNone}};

constexpr int kLongestWait = 1000000;

// What sending and asking for the status have in common.
void declareCommon(CLI::App& app, Options& options) {
  app.option_defaults()->always_capture_default(false);
  app.set_version_flag("--version", "jxpush " JX_VERSION);
  app.add_option("--timeout", options.silenceSeconds,
                 "How many seconds an HTTP terminal may stay silent while it takes the files, installs them and "
                 "answers; 900 unless given")
      ->type_name("SECONDS")
      ->check(CLI::Range(1, kLongestWait).description(""));
  app.add_option("--wait", options.waitSeconds,
                 "How many seconds to wait for the first answer of a terminal at a serial line, or for the connection "
                 "to one over HTTP; 60 unless given")
      ->type_name("SECONDS")
      ->check(CLI::Range(0, kLongestWait).description(""));
  app.add_flag("--json", options.json, "Prints the result as JSON, one object a line; the last is the result");
}

void declareStatus(CLI::App& app, Options& options) {
  declareCommon(app, options);
  app.add_option("--to", options.target, "Which terminal: http://HOST[:PORT]")->type_name("TARGET")->required();
  app.footer("Exit codes: 0 reachable, 2 wrong command line, 20 unreachable, 30 not a terminal, 130 interrupted.");
}

void declare(CLI::App& app, Options& options) {
  declareCommon(app, options);
  app.add_option("--to", options.target,
                 "Where to: serial:DEVICE, a serial port such as serial:/dev/ttyUSB0, or http://HOST[:PORT], a "
                 "terminal's upload server; the port is 6370 unless given")
      ->type_name("TARGET")
      ->required();
  app.add_option("--progress", options.progress,
                 "How progress is shown on standard error: auto, tty, plain, json or none; auto takes tty or plain")
      ->type_name("STYLE")
      ->transform(CLI::CheckedTransformer(kStyles, CLI::ignore_case).description(""));
  app.add_flag("--dry-run", options.dryRun, "Checks files and port, and says what would be sent; sends nothing");
  app.add_option("FILE", options.files, "The files to send, in this order")->type_name("")->required();
  app.footer(
      "\"jxpush status --to http://HOST[:PORT]\" says whether a terminal answers and which certificates it offers.\n\n"
      "Exit codes: 0 sent, 2 wrong command line, 10 a file cannot be read, 20 no such port or terminal, or the\n"
      "connection broke and nothing is installed, 21 the port is busy, 22 no permission for the port, 30 gave up: no\n"
      "answer, the line is too bad, or the upload was refused, 34 the terminal refused or aborted the download, 40\n"
      "the installer reported an error, 41 the connection broke and what is installed is not known, 130 interrupted.");
}

}  // namespace

CommandLine readCommandLine(int argc, char** argv) {
  CommandLine line;
  // Also for a line that cannot be read: its result is asked for as JSON all the same.
  for (int i = 1; i < argc; ++i) line.options.json = line.options.json || std::strcmp(argv[i], "--json") == 0;
  const bool status = argc > 1 && std::strcmp(argv[1], "status") == 0;
  CLI::App app(status ? "Says whether a terminal answers over HTTP and which certificates it offers."
                      : "Sends application packages to a terminal, which installs them.",
               status ? "jxpush status" : "jxpush");
  if (status) {
    line.options.command = Command::kStatus;
    declareStatus(app, line.options);
  } else {
    declare(app, line.options);
  }
  try {
    app.parse(argc - (status ? 1 : 0), argv + (status ? 1 : 0));
  } catch (const CLI::ParseError& error) {
    line.done = true;
    line.exitCode = app.exit(error) == 0 ? 0 : static_cast<int>(ExitCode::kUsage);
  }
  return line;
}

}  // namespace jxpush
