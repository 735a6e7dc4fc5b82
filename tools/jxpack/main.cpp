#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <string>

#include "base/atomic_file.h"
#include "base/file_io.h"
#include "base/ignore.h"
#include "tools/jxpack/file_tree.h"
#include "tools/jxpack/manifest_text.h"
#include "tools/jxpack/package_writer.h"
#include "tools/jxpack/problem.h"
#include "tools/jxpack/signer.h"

namespace {

struct Options {
  jxpack::PackageFacts facts;
  std::string folder;
  std::string output;
  std::string key;
  std::string certificate;
};

void declare(CLI::App& app, Options& options) {
  app.option_defaults()->always_capture_default(false);
  app.add_option("--name", options.facts.name, "The application's name: [a-z0-9][a-z0-9._-]{0,63}")->required();
  app.add_option("--version", options.facts.version, "Its version: [0-9A-Za-z][0-9A-Za-z.+~-]{0,63}")->required();
  app.add_option("--description", options.facts.description, "What it is, in at most 1024 bytes");
  CLI::Option* const key = app.add_option("--key", options.key, "Signs the package with this private key (PEM)");
  CLI::Option* const certificate =
      app.add_option("--cert", options.certificate, "The key's certificate (PEM), followed by those it chains through");
  key->needs(certificate);
  certificate->needs(key);
  app.add_option("-o,--output", options.output, "The package; NAME-VERSION.zip unless given");
  app.add_option("DIR", options.folder, "The folder whose files are packed")->required();
  app.footer(
      "Exit codes: 0 the package was made, 1 the installer would refuse it, 2 wrong command line,\n"
      "3 a file cannot be read or written, 4 key or certificate do not serve.");
}

[[noreturn]] void failWrite(const std::string& path) {
  throw jxpack::Problem(jxpack::ExitCode::kFile, path + ": cannot be written: " + base::errorText(errno));
}

void makePackage(Options options) {
  if (options.output.empty()) options.output = options.facts.name + '-' + options.facts.version + ".zip";
  while (options.folder.size() > 1 && options.folder.back() == '/') options.folder.pop_back();
  jxpack::PackageContent content;
  // The facts first: they are refused without reading a file.
  base::ignore(jxpack::manifestText(options.facts, {}));
  content.folder = options.folder;
  content.files = jxpack::readTree(options.folder, options.output);
  content.manifest = jxpack::manifestText(options.facts, content.files);
  if (!options.key.empty()) content.signature = jxpack::sign(content.manifest, options.key, options.certificate);
  // A draft of its own for each process: two may make the same package at once.
  base::AtomicFile output(options.output, '.' + std::to_string(getpid()) + ".new");
  if (!output) failWrite(options.output);
  jxpack::writePackage(output.fd(), content);
  if (!output.commit(base::Flush::kYes)) failWrite(options.output);
  std::printf("%s: %zu files%s\n", options.output.c_str(), content.files.size(), content.signature ? ", signed" : "");
}

int run(int argc, char** argv) {
  CLI::App app("Makes an application package for the terminal's installer out of the files of a folder.", "jxpack");
  Options options;
  declare(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? static_cast<int>(jxpack::ExitCode::kDone)
                                : static_cast<int>(jxpack::ExitCode::kUsage);
  }
  try {
    makePackage(options);
    return static_cast<int>(jxpack::ExitCode::kDone);
  } catch (const jxpack::Problem& problem) {
    std::fprintf(stderr, "jxpack: %s\n", problem.what());
    return static_cast<int>(problem.code());
  }
}

}  // namespace

int main(int argc, char** argv) try { return run(argc, argv); } catch (const std::exception& failure) {
  std::fprintf(stderr, "jxpack: %s\n", failure.what());
  return static_cast<int>(jxpack::ExitCode::kFile);
}
