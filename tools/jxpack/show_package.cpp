#include "tools/jxpack/show_package.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "base/descriptor.h"
#include "base/file_io.h"
#include "base/text.h"
#include "platform/linux/jxapp/failure.h"
#include "platform/linux/jxapp/package.h"
#include "platform/linux/jxapp/signature.h"
#include "tools/jxpack/problem.h"

namespace jxpack {
namespace {

class PackageFile {
 public:
  // Not to block on a pipe, which is refused.
  explicit PackageFile(const std::string& path)
      : path_(path), file_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    struct stat status {};
    if (!file_ || fstat(file_.get(), &status) != 0) fail(base::errorText(errno));
    if (!S_ISREG(status.st_mode)) fail("is not a file");
    size_ = static_cast<std::uint64_t>(status.st_size);
  }

  // Its package, of which every file has been unpacked and held against its digest.
  [[nodiscard]] jxinstall::Package check() const try {
    return jxinstall::checkPackage(file_.get(), size_);
  } catch (const jxinstall::Failure& failure) {
    throw Problem(ExitCode::kRefused, path_ + ": " + failure.what());
  }

  [[nodiscard]] std::string digest() const try {
    return jxinstall::digestOf(file_.get(), size_);
  } catch (const jxinstall::Failure& failure) {
    fail(failure.what());
  }

  [[nodiscard]] std::uint64_t size() const { return size_; }

 private:
  [[noreturn]] void fail(const std::string& why) const { throw Problem(ExitCode::kFile, path_ + ": " + why); }

  std::string path_;
  base::Descriptor file_;
  std::uint64_t size_ = 0;
};

const char* signedWord(const jxinstall::Package& package) { return package.signature ? "yes" : "no"; }

void printFacts(const jxinstall::Manifest& manifest) {
  std::printf("name: %s\n", manifest.name.c_str());
  if (manifest.remove) {
    std::printf("removes: yes\n");
  } else {
    std::printf("version: %s\n", manifest.version.c_str());
  }
  if (!manifest.description.empty()) std::printf("description: %s\n", manifest.description.c_str());
}

std::string titleOf(const jxinstall::Manifest& manifest) {
  return manifest.remove ? "the removal of " + manifest.name : manifest.name + ' ' + manifest.version;
}

void checkFolder(const std::string& certs) {
  struct stat status {};
  if (stat(certs.c_str(), &status) != 0) throw Problem(ExitCode::kFile, certs + ": " + base::errorText(errno));
  if (!S_ISDIR(status.st_mode)) throw Problem(ExitCode::kFile, certs + ": is not a folder");
}

}  // namespace

void showPackage(const std::string& path) {
  const PackageFile file(path);
  const jxinstall::Package package = file.check();
  std::printf("%s: %llu bytes, sha256 %s\n", path.c_str(), static_cast<unsigned long long>(file.size()),
              file.digest().c_str());
  printFacts(package.manifest);
  std::printf("signature: %s\n", signedWord(package));
  for (const jxinstall::ZipEntry& entry : package.index.entries) {
    if (entry.directory || package.manifest.files.count(entry.name) == 0) continue;
    std::printf("%11llu %c %s\n", static_cast<unsigned long long>(entry.size), entry.executable ? 'x' : '-',
                entry.name.c_str());
  }
}

void verifyPackage(const std::string& path, const std::string& certs) {
  if (!certs.empty()) checkFolder(certs);
  const jxinstall::Package package = PackageFile(path).check();
  const std::string title = titleOf(package.manifest);
  if (!certs.empty()) {
    const std::string problem = jxinstall::signatureProblem(certs, package.manifestBytes, package.signature);
    if (!problem.empty()) throw Problem(ExitCode::kRefused, path + ": " + title + ' ' + problem);
  }
  const char* const signature = !package.signature ? "not signed"
                                : certs.empty()    ? "signature not checked"
                                                   : "signature good";
  std::printf("%s: %s, good, %s\n", path.c_str(), title.c_str(), signature);
}

}  // namespace jxpack
