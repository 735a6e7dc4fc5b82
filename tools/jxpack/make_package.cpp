#include "tools/jxpack/make_package.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "base/atomic_file.h"
#include "base/file_io.h"
#include "base/ignore.h"
#include "base/text.h"
#include "tools/jxpack/file_tree.h"
#include "tools/jxpack/package_writer.h"
#include "tools/jxpack/problem.h"
#include "tools/jxpack/project_file.h"
#include "tools/jxpack/signer.h"

namespace jxpack {
namespace {

[[noreturn]] void failWrite(const std::string& path) {
  throw Problem(ExitCode::kFile, path + ": cannot be written: " + base::errorText(errno));
}

// What is missing is told before anything is read of the files.
void checkFacts(const PackageFacts& facts) {
  for (const auto& [fact, option] : {std::pair(&facts.name, "--name"), std::pair(&facts.version, "--version")}) {
    if (fact->empty()) {
      throw Problem(ExitCode::kUsage, std::string(option) + " is required, here or in jxpackage.json in the folder");
    }
  }
  base::ignore(manifestText(facts, {}));
}

void checkPlace(const Options& options) {
  struct stat status {};
  if (options.force || lstat(options.output.c_str(), &status) != 0) return;
  throw Problem(ExitCode::kFile, options.output + ": is there already; --force replaces it");
}

void printLeftOut(const std::vector<LeftOut>& all) {
  for (const LeftOut& one : all) {
    std::fprintf(stderr, "jxpack: left out %s (%s)\n", base::printable(one.path).c_str(),
                 base::withoutControls(one.reason).c_str());
  }
}

// `what` says in a word or two what is in the package.
void write(const Options& options, PackageContent& content, const std::string& what) {
  if (!options.key.empty()) content.signature = sign(content.manifest, options.key, options.certificate);
  // A draft of its own for each process: two may make the same package at once.
  base::AtomicFile output(options.output, '.' + std::to_string(getpid()) + ".new");
  if (!output) failWrite(options.output);
  const Written written = writePackage(output.fd(), content);
  if (!output.commit(base::Flush::kYes)) failWrite(options.output);
  std::printf("%s: %s, %llu bytes, sha256 %s%s\n", options.output.c_str(), what.c_str(),
              static_cast<unsigned long long>(written.size), written.digest.c_str(),
              content.signature ? ", signed" : "");
}

}  // namespace

void makePackage(Options options) {
  while (options.folder.size() > 1 && options.folder.back() == '/') options.folder.pop_back();
  TreeRules rules;
  readProject(options.folder, options.facts, rules.exclusions);
  for (const std::string& pattern : options.excluded) rules.exclusions.add(pattern, "--exclude");
  checkFacts(options.facts);
  if (options.output.empty()) options.output = options.facts.name + '-' + options.facts.version + ".zip";
  checkPlace(options);
  rules.output = options.output;
  rules.allowPrivateKeys = options.allowPrivateKeys;
  Tree tree = readTree(options.folder, rules);
  printLeftOut(tree.leftOut);
  PackageContent content;
  content.folder = options.folder;
  content.files = std::move(tree.files);
  content.manifest = manifestText(options.facts, content.files);
  write(options, content, std::to_string(content.files.size()) + (content.files.size() == 1 ? " file" : " files"));
}

void makeRemoval(Options options) {
  PackageContent content;
  content.manifest = removalText(options.removed);
  if (options.output.empty()) options.output = options.removed + "-remove.zip";
  checkPlace(options);
  write(options, content, "removes " + options.removed);
}

}  // namespace jxpack
