#include "tools/jxpush/options.h"

#include <CLI/CLI.hpp>
#include <cstring>
#include <map>

#include "tools/jxpush/problem.h"

namespace jxpush {

namespace {

const std::map<std::string, ProgressStyle> kStyles = {{"auto", ProgressStyle::kAuto},
                                                      {"tty", ProgressStyle::kTty},
                                                      {"plain", ProgressStyle::kPlain},
                                                      {"json", ProgressStyle::kJson},
                                                      {"none", ProgressStyle::kNone}};

void declare(CLI::App& app, Options& options) {
  app.option_defaults()->always_capture_default(false);
  app.set_version_flag("--version", "jxpush " JX_VERSION);
  app.add_option("--to", options.target, "Where to: serial:DEVICE, a serial port such as serial:/dev/ttyUSB0")
      ->type_name("TARGET")
      ->required();
  app.add_option("--progress", options.progress,
                 "How progress is shown on standard error: auto, tty, plain, json or none; auto takes tty or plain")
      ->type_name("STYLE")
      ->transform(CLI::CheckedTransformer(kStyles, CLI::ignore_case).description(""));
  app.add_option("--wait", options.waitSeconds,
                 "How many seconds to wait for the terminal's first answer; 60 unless given")
      ->type_name("SECONDS")
      ->check(CLI::Range(0, 1000000).description(""));
  app.add_flag("--json", options.json, "Prints the result as JSON, one object a line; the last is the result");
  app.add_flag("--dry-run", options.dryRun, "Checks files and port, and says what would be sent; sends nothing");
  app.add_option("FILE", options.files, "The files to send, in this order")->type_name("")->required();
  app.footer(
      "Exit codes: 0 sent, 2 wrong command line, 10 a file cannot be read, 20 no such port, 21 the port is\n"
      "busy, 22 no permission for the port, 30 gave up: no answer, or the line is too bad, 34 the terminal\n"
      "refused or aborted the download, 130 interrupted.");
}

}  // namespace

CommandLine readCommandLine(int argc, char** argv) {
  CommandLine line;
  // Also for a line that cannot be read: its result is asked for as JSON all the same.
  for (int i = 1; i < argc; ++i) line.options.json = line.options.json || std::strcmp(argv[i], "--json") == 0;
  CLI::App app("Sends application packages to a terminal, which installs them.", "jxpush");
  declare(app, line.options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    line.done = true;
    line.exitCode = app.exit(error) == 0 ? 0 : static_cast<int>(ExitCode::kUsage);
  }
  return line;
}

}  // namespace jxpush
