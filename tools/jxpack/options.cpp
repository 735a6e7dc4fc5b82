#include "tools/jxpack/options.h"

#include <CLI/CLI.hpp>
#include <string>

#include "tools/jxpack/problem.h"

namespace jxpack {
namespace {

void declareFacts(CLI::App& app, Options& options) {
  app.add_option("--name", options.facts.name, "The application's name: [a-z0-9][a-z0-9._-]{0,63}");
  app.add_option("--version", options.facts.version,
                 "The application's version: [0-9A-Za-z][0-9A-Za-z.+~-]{0,63}; that of jxpack: --tool-version");
  app.add_option("--description", options.facts.description, "What it is, in at most 1024 bytes");
}

// In place of everything that says what is packed.
void declareRemoval(CLI::App& app, Options& options) {
  CLI::Option* const removal =
      app.add_option("--remove", options.removed, "Makes a package that removes this application from the terminal")
          ->type_name("NAME");
  for (const char* other : {"--name", "--version", "--description", "--exclude", "--allow-private-keys", "DIR"}) {
    removal->excludes(other);
  }
}

void declareFiles(CLI::App& app, Options& options) {
  app.add_option("--exclude", options.excluded,
                 "Leaves out what the pattern fits, such as '*.o' or 'doc/'; may stand several times")
      ->type_name("PATTERN")
      ->allow_extra_args(false);
  app.add_flag("--allow-private-keys", options.allowPrivateKeys,
               "Packs files that hold a private key, which are refused otherwise");
  app.add_option("-o,--output", options.output, "The package; NAME-VERSION.zip or NAME-remove.zip unless given");
  app.add_flag("--force", options.force, "Replaces a file that is there under the package's name");
  app.add_option("DIR", options.folder, "The folder whose files are packed");
}

void declareSigning(CLI::App& app, Options& options) {
  CLI::Option* const key = app.add_option("--key", options.key, "Signs the package with this private key (PEM)");
  CLI::Option* const certificate =
      app.add_option("--cert", options.certificate, "The key's certificate (PEM), followed by those it chains through");
  key->needs(certificate);
  certificate->needs(key);
}

void declare(CLI::App& app, Options& options) {
  app.option_defaults()->always_capture_default(false);
  app.set_version_flag("--tool-version", "jxpack " JX_VERSION, "Prints the version of jxpack itself and ends");
  declareFacts(app, options);
  declareFiles(app, options);
  declareRemoval(app, options);
  declareSigning(app, options);
  app.footer(
      "\"jxpack show FILE\" says what is in a package; \"jxpack verify FILE [--certs FOLDER]\" checks it as the "
      "installer\n"
      "does. A folder of one of these names is written ./show or ./verify.\n\n"
      "Name, version, description and patterns may stand in DIR/jxpackage.json, patterns in DIR/.jxignore too.\n\n"
      "Exit codes: 0 the package was made, 1 the installer would refuse it or it would give a private key away,\n"
      "2 wrong command line, jxpackage.json or .jxignore, 3 a file cannot be read or written, or is there already,\n"
      "4 key or certificate do not serve.");
}

void declareLooking(CLI::App& app, Options& options) {
  app.option_defaults()->always_capture_default(false);
  app.add_option("FILE", options.package, "The package")->required();
  if (options.command == Command::kVerify) {
    app.add_option("--certs", options.certs,
                   "Verifies the signature too, by the certificates (*.pem) and lists (*.crl) of this folder");
  }
  app.footer("Exit codes: 0 good, 1 the installer would refuse it, 2 wrong command line, 3 a file cannot be read.");
}

const char* purposeOf(Command command) {
  switch (command) {
    case Command::kShow:
      return "Says what is in a package.";
    case Command::kVerify:
      return "Checks a package as the installer does.";
    default:
      return "Makes an application package for the terminal's installer out of the files of a folder.";
  }
}

}  // namespace

CommandLine readCommandLine(int argc, char** argv) {
  CommandLine line;
  Command& command = line.options.command;
  const std::string word = argc > 1 ? argv[1] : "";
  if (word == "show") command = Command::kShow;
  if (word == "verify") command = Command::kVerify;
  const int skipped = command == Command::kMake ? 0 : 1;
  CLI::App app(purposeOf(command), skipped == 0 ? "jxpack" : "jxpack " + word);
  skipped == 0 ? declare(app, line.options) : declareLooking(app, line.options);
  try {
    app.parse(argc - skipped, argv + skipped);
    if (command == Command::kMake && !line.options.removed.empty()) command = Command::kRemove;
    if (command == Command::kMake && line.options.folder.empty()) throw CLI::RequiredError("DIR");
  } catch (const CLI::ParseError& error) {
    line.done = true;
    line.exitCode = app.exit(error) == 0 ? 0 : static_cast<int>(ExitCode::kUsage);
  }
  return line;
}

}  // namespace jxpack
