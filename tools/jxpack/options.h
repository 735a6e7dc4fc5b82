// The command line of jxpack.
#pragma once

#include <string>
#include <vector>

#include "tools/jxpack/manifest_text.h"

namespace jxpack {

enum class Command { kMake, kRemove, kShow, kVerify };

struct Options {
  Command command = Command::kMake;
  PackageFacts facts;
  std::string package;  // to be shown or verified
  std::string certs;    // the folder of the certificates to verify by; empty: the signature is not looked at
  std::string folder;
  std::string removed;  // the application that the package removes; empty for a package of the folder
  std::string output;
  std::string key;
  std::string certificate;
  std::vector<std::string> excluded;
  bool allowPrivateKeys = false;
  bool force = false;
};

// What the command line asks for.
struct CommandLine {
  Options options;
  bool done = false;  // help or version was printed, or the line is wrong: end with exitCode
  int exitCode = 0;
};

// Reads the command line; prints the help on standard output, what is wrong with it on standard error.
[[nodiscard]] CommandLine readCommandLine(int argc, char** argv);

}  // namespace jxpack
