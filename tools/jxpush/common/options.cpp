#include "tools/jxpush/common/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <numeric>

#include "base/text.h"
#include "tools/jxpush/common/problem.h"

namespace jxpush {

namespace {

const std::map<std::string, ProgressStyle> kStyles = {{"auto", ProgressStyle::kAuto},
                                                      {"tty", ProgressStyle::kTty},
                                                      {"plain", ProgressStyle::kPlain},
                                                      {"json", ProgressStyle::kJson},
                                                      {"none", ProgressStyle::kNone}};

constexpr int kLongestWait = 1000000;
constexpr int kMost = 1000;
constexpr std::size_t kAlike = 3;  // changes of a letter between what was typed and what may have been meant

// Refuses what is no whole number from `least` to `most` with a text for users.
CLI::Validator numberBetween(int least, int most) {
  const auto check = [least, most](const std::string& text) -> std::string {
    const bool digits = !text.empty() && text.size() < 9 && text.find_first_not_of("0123456789") == std::string::npos;
    if (digits && std::stoi(text) >= least && std::stoi(text) <= most) return "";
    return "takes a whole number from " + std::to_string(least) + " to " + std::to_string(most) + ", not \"" + text +
           '"';
  };
  return {check, "", ""};
}

CLI::Validator styleName() {
  const auto check = [](const std::string& text) -> std::string {
    if (kStyles.count(base::lowerCase(text)) > 0) return "";
    return "takes auto, tty, plain, json or none, not \"" + text + '"';
  };
  return {check, "", ""};
}

// What sending and asking for the status have in common.
void declareCommon(CLI::App& app, Options& options) {
  app.option_defaults()->always_capture_default(false);
  app.set_version_flag("--version", "jxpush " JX_VERSION);
  app.add_option("--timeout", options.silenceSeconds,
                 "How many seconds an HTTP terminal may stay silent while it takes the files, installs them and "
                 "answers; 900 unless given")
      ->type_name("SECONDS")
      ->check(numberBetween(1, kLongestWait));
  app.add_option_function<int>(
         "--wait",
         [&options](int seconds) {
           options.waitSeconds = seconds;
           options.waitGiven = true;
         },
         "How many seconds to wait for a terminal: at a serial line for its first answer, over HTTP until it "
         "listens. Unless given: 60, and one over HTTP has to listen already")
      ->type_name("SECONDS")
      ->check(numberBetween(0, kLongestWait));
  app.add_flag("--json", options.json, "Prints the result as JSON, one object a line; the last is the result");
}

void declareStatus(CLI::App& app, Options& options) {
  declareCommon(app, options);
  app.add_option("-t,--to", options.targets, "Which terminal: http://HOST[:PORT]")
      ->type_name("TARGET")
      ->allow_extra_args(false);
  app.footer("Exit codes: 0 reachable, 2 wrong command line, 20 unreachable, 30 not a terminal, 130 interrupted.");
}

// How much is said.
void declareOutput(CLI::App& app, Options& options) {
  app.add_option_function<std::string>(
         "--progress", [&options](const std::string& style) { options.progress = kStyles.at(base::lowerCase(style)); },
         "How progress is shown on standard error: auto, tty, plain, json or none; auto takes tty or plain")
      ->type_name("STYLE")
      ->check(styleName());
  app.add_flag("-q,--quiet", "The same as --progress none");
  app.add_flag("-v,--verbose", options.verbose,
               "Of several terminals, prints the log of each; otherwise of those that failed");
}

void declare(CLI::App& app, Options& options) {
  declareCommon(app, options);
  app.add_option("-t,--to", options.targets,
                 "Where to: serial:DEVICE, a serial port such as serial:/dev/ttyUSB0, or http://HOST[:PORT], a "
                 "terminal's upload server; the port is 6370 unless given. A device's path or a host alone will do. "
                 "May be given several times")
      ->type_name("TARGET")
      ->allow_extra_args(false);
  app.add_option("--targets", options.targetsFile,
                 "A file with further targets, one a line: the target and, behind a blank, a name for it; - is "
                 "standard input")
      ->type_name("LIST");
  app.add_option("--jobs", options.jobs,
                 "How many terminals are served over HTTP at once; 8 unless given. Each serial line is served at once")
      ->type_name("N")
      ->check(numberBetween(1, kMost));
  app.add_option("--retry", options.retries,
                 "How often a terminal that is unreachable, busy or gave up is tried again, after 1, 2, 4 and so on "
                 "to 60 seconds; 0 unless given")
      ->type_name("N")
      ->check(numberBetween(0, kMost));
  declareOutput(app, options);
  app.add_flag("-n,--dry-run", options.dryRun, "Checks files and port, and says what would be sent; sends nothing");
  app.footer(
      "\"jxpush status --to http://HOST[:PORT]\" says whether a terminal answers and which certificates it offers.\n\n"
      "Exit codes: 0 sent, 2 wrong command line, 10 a file cannot be read, 20 no such port or terminal, or the\n"
      "connection broke and nothing is installed, 21 the port is busy, 22 no permission for the port, 30 gave up: no\n"
      "answer, the line is too bad, or the upload was refused, 34 the terminal refused or aborted the download, 40\n"
      "the installer reported an error, 41 the connection broke and what is installed is not known, 50 of several\n"
      "terminals at least one failed, 130 interrupted.");
}

// The command "status" is a file's name once a file has been named, or behind "--".
CLI::App* declareStatusCommand(CLI::App& app, Options& options) {
  CLI::App* const status =
      app.add_subcommand("status", "Says whether a terminal answers over HTTP and which certificates it offers.");
  declareStatus(*status, options);
  app.validate_positionals();
  const auto isFileFromHere = [status](const std::string& /*file*/) -> std::string {
    status->disabled();
    return "";
  };
  app.add_option("FILE", options.files, "The files to send, in this order")
      ->type_name("")
      ->check(CLI::Validator(isFileFromHere, "", ""));
  return status;
}

// How many letters have to be changed, put in or taken out to make the one the other.
std::size_t distance(const std::string& one, const std::string& other) {
  std::vector<std::size_t> row(other.size() + 1);
  std::iota(row.begin(), row.end(), 0U);
  for (const char letter : one) {
    std::size_t diagonal = row[0]++;
    for (std::size_t j = 0; j < other.size(); ++j) {
      const std::size_t changed = diagonal + (letter == other[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, diagonal + 1, row[j] + 1});
    }
  }
  return row.back();
}

// "; did you mean --progress?", or nothing.
std::string nearestOption(const CLI::App& app, const std::string& typed) {
  std::string best;
  std::size_t least = kAlike;
  const std::string name = typed.substr(0, typed.find('='));
  for (const CLI::Option* const option : app.get_options()) {
    if (option->get_lnames().empty()) continue;
    const std::string known = "--" + option->get_lnames()[0];
    const bool begun = name.size() > 3 && base::beginsWith(known, name);
    const std::size_t far = begun ? 1 : distance(name, known);
    if (far < least) {
      best = known;
      least = far;
    }
  }
  return best.empty() ? "" : "; did you mean " + best + '?';
}

// The option that the library's message names, or "an option".
std::string optionIn(const std::string& text) {
  const std::size_t begin = text.find("--");
  if (begin == std::string::npos) return "an option";
  return text.substr(begin, text.find_first_of(" :=,", begin) - begin);
}

// In our own words: the library's speak of its own types.
std::string complaintOf(const CLI::App& app, const CLI::ParseError& error) {
  const std::string text = error.what();
  switch (static_cast<CLI::ExitCodes>(error.get_exit_code())) {
    case CLI::ExitCodes::ExtrasError: {
      const std::vector<std::string> rest = app.remaining(true);
      const std::string extra = rest.empty() ? "" : rest.front();
      if (!base::beginsWith(extra, "-")) return '"' + extra + "\" is one argument too many";
      return "there is no option " + extra + nearestOption(app, extra);
    }
    case CLI::ExitCodes::ValidationError:
      return optionIn(text) + text.substr(std::min(text.size(), text.find(": ") + 1));
    case CLI::ExitCodes::ArgumentMismatch:
      return optionIn(text) + " takes one value, once";
    default:
      return optionIn(text) + " is not given as it is meant";
  }
}

// What is missing, or too much; empty when nothing is.
std::string lackOf(const CLI::App& app, Options& options) {
  const bool quiet = app.count("--quiet") > 0;
  if (quiet && app.count("--progress") > 0) return "--quiet and --progress exclude each other";
  if (quiet) options.progress = ProgressStyle::kNone;
  if (options.command == Command::kStatus) {
    return options.targets.size() == 1 ? "" : "status takes one --to http://HOST[:PORT]";
  }
  if (options.targets.empty() && options.targetsFile.empty()) return "--to is missing: which terminal?";
  return options.files.empty() ? "no FILE is given: what is to be sent?" : "";
}

}  // namespace

CommandLine readCommandLine(int argc, char** argv) {
  CommandLine line;
  CLI::App app("Sends application packages to a terminal, or to many, which install them.", "jxpush");
  declare(app, line.options);
  CLI::App* const status = declareStatusCommand(app, line.options);
  const auto isGiven = [&app, status](const char* option) {
    return app.count(option) > 0 || status->count(option) > 0;
  };
  try {
    app.parse(argc, argv);
    line.options.command = status->count() > 0 ? Command::kStatus : Command::kSend;
    line.complaint = lackOf(app, line.options);
  } catch (const CLI::ParseError& error) {
    line.done = true;
    if (error.get_exit_code() == 0) {
      line.exitCode = app.exit(error);
      return line;
    }
    line.complaint = complaintOf(status->count() > 0 ? *status : app, error);
  }
  if (line.complaint.empty()) return line;
  line.done = true;
  line.exitCode = static_cast<int>(ExitCode::kUsage);
  // Known also where the line could not be read to its end.
  line.options.json = isGiven("--json");
  return line;
}

}  // namespace jxpush
