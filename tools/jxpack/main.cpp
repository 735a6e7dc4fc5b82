#include <cstdio>
#include <exception>

#include "tools/jxpack/make_package.h"
#include "tools/jxpack/options.h"
#include "tools/jxpack/problem.h"
#include "tools/jxpack/show_package.h"

namespace {

void obey(const jxpack::Options& options) {
  switch (options.command) {
    case jxpack::Command::kMake:
      return jxpack::makePackage(options);
    case jxpack::Command::kRemove:
      return jxpack::makeRemoval(options);
    case jxpack::Command::kShow:
      return jxpack::showPackage(options.package);
    case jxpack::Command::kVerify:
      return jxpack::verifyPackage(options.package, options.certs);
  }
}

int run(int argc, char** argv) {
  const jxpack::CommandLine line = jxpack::readCommandLine(argc, argv);
  if (line.done) return line.exitCode;
  try {
    obey(line.options);
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
