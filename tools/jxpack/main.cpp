#include <cstdio>
#include <exception>

#include "tools/jxpack/make_package.h"
#include "tools/jxpack/options.h"
#include "tools/jxpack/problem.h"

namespace {

int run(int argc, char** argv) {
  const jxpack::CommandLine line = jxpack::readCommandLine(argc, argv);
  if (line.done) return line.exitCode;
  try {
    line.options.removed.empty() ? jxpack::makePackage(line.options) : jxpack::makeRemoval(line.options);
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
