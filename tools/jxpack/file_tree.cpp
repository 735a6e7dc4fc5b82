#include "tools/jxpack/file_tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>

#include "base/file_io.h"
#include "platform/linux/jxapp/zip_index.h"
#include "platform/linux/openssl/sha256.h"
#include "tools/jxpack/package_rules.h"
#include "tools/jxpack/private_key_finder.h"
#include "tools/jxpack/problem.h"

namespace jxpack {
namespace {

constexpr std::size_t kBlockBytes = std::size_t{64} * 1024;

[[noreturn]] void failRead(const std::string& path) {
  throw Problem(ExitCode::kFile, path + ": cannot be read: " + base::errorText(errno));
}

[[noreturn]] void refuse(const std::string& path, const std::string& why) {
  throw Problem(ExitCode::kRefused, path + ": " + why);
}

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

std::string readAndDigest(const std::string& path,
                          const std::function<void(const char* data, std::size_t size)>& sink) {
  const File file(std::fopen(path.c_str(), "rbe"), std::fclose);
  if (!file) failRead(path);
  jxplatform::Sha256 digest;
  std::vector<char> block(kBlockBytes);
  while (const std::size_t got = std::fread(block.data(), 1, block.size(), file.get())) {
    digest.add(block.data(), got);
    sink(block.data(), got);
  }
  if (std::ferror(file.get()) != 0) failRead(path);
  const std::optional<std::string> hex = digest.hex();
  if (!hex) throw Problem(ExitCode::kSigning, "the SHA-256 digest cannot be computed");
  return *hex;
}

std::vector<std::string> namesIn(const std::string& folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(folder.c_str()), closedir);
  if (!stream) failRead(folder);
  std::vector<std::string> names;
  while (const dirent* entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  return names;
}

class TreeReader {
 public:
  TreeReader(std::string folder, const TreeRules& rules) : folder_(std::move(folder)), rules_(rules) {
    hasOutput_ = stat(rules.output.c_str(), &output_) == 0;
  }

  Tree read() {
    const auto byPath = [](const auto& a, const auto& b) { return a.path < b.path; };
    addFolder("");
    if (tree_.files.empty()) refuse(folder_, "nothing is left to be packed");
    std::sort(tree_.files.begin(), tree_.files.end(), byPath);
    std::sort(tree_.leftOut.begin(), tree_.leftOut.end(), byPath);
    return std::move(tree_);
  }

 private:
  // `below` is the path below the folder, with a slash at its end unless it is empty.
  void addFolder(const std::string& below) {
    const std::vector<std::string> names = namesIn(folder_ + '/' + below);
    if (names.empty()) refuse(folder_ + '/' + below, "the directory is empty; the installer makes none without files");
    for (const std::string& name : names) add(below + name);
  }

  void add(const std::string& path) {
    const std::string full = folder_ + '/' + path;
    struct stat status {};
    if (lstat(full.c_str(), &status) != 0) failRead(full);
    const std::string reason = reasonToLeaveOut(path, status);
    if (!reason.empty()) return tree_.leftOut.push_back({S_ISDIR(status.st_mode) ? path + '/' : path, reason});
    const std::string problem = pathProblem(path);
    if (!problem.empty()) refuse(full, problem);
    if (S_ISDIR(status.st_mode)) return addFolder(path + '/');
    if (S_ISLNK(status.st_mode)) refuse(full, "is a link");
    if (!S_ISREG(status.st_mode)) refuse(full, "is neither a file nor a directory");
    addFile(path, full, status);
  }

  std::string reasonToLeaveOut(const std::string& path, const struct stat& status) const {
    if (hasOutput_ && status.st_dev == output_.st_dev && status.st_ino == output_.st_ino) return "the package itself";
    return rules_.exclusions.reasonFor(path, S_ISDIR(status.st_mode));
  }

  void addFile(const std::string& path, const std::string& full, const struct stat& status) {
    constexpr std::size_t kMaxFiles = jxinstall::kMaxEntries - 2;
    total_ += static_cast<std::uint64_t>(status.st_size);
    if (total_ > jxinstall::kMaxUnpackedBytes) {
      refuse(folder_, "has more than the " + std::to_string(jxinstall::kMaxUnpackedBytes) + " bytes that are allowed");
    }
    if (tree_.files.size() >= kMaxFiles) {
      refuse(folder_, "has more than the " + std::to_string(kMaxFiles) + " files that are allowed");
    }
    SourceFile file;
    file.path = path;
    PrivateKeyFinder keys;
    file.digest = readAndDigest(full, [&](const char* data, std::size_t size) { keys.add(data, size); });
    if (keys.found() && !rules_.allowPrivateKeys) {
      refuse(full, "holds a private key, which everyone with the package could read; --allow-private-keys packs it");
    }
    file.size = static_cast<std::uint64_t>(status.st_size);
    file.executable = (status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0;
    tree_.files.push_back(std::move(file));
  }

  std::string folder_;
  const TreeRules& rules_;
  struct stat output_ {};
  bool hasOutput_ = false;
  std::uint64_t total_ = 0;
  Tree tree_;
};

}  // namespace

Tree readTree(const std::string& folder, const TreeRules& rules) {
  Tree tree = TreeReader(folder, rules).read();
  std::vector<std::string> paths;
  paths.reserve(tree.files.size());
  for (const SourceFile& file : tree.files) paths.push_back(file.path);
  const std::string problem = pathsProblem(paths);
  if (!problem.empty()) refuse(folder, problem);
  return tree;
}

void readContent(const std::string& folder, const SourceFile& file,
                 const std::function<void(const char* data, std::size_t size)>& sink) {
  const std::string full = folder + '/' + file.path;
  if (readAndDigest(full, sink) != file.digest) {
    throw Problem(ExitCode::kFile, full + ": changed while it was being packed");
  }
}

}  // namespace jxpack
