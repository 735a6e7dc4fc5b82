#include "tools/jxpack/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "tools/jxpack/problem.h"

namespace jxpack {
namespace {

// mkostemp() makes the file for its owner alone; a package is made like any other file.
mode_t ordinaryMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

OutputFile::OutputFile(std::string path) : path_(std::move(path)), temporary_(path_ + ".XXXXXX") {
  fd_ = mkostemp(temporary_.data(), O_CLOEXEC);
  if (fd_ < 0) fail();
}

OutputFile::~OutputFile() {
  if (fd_ < 0) return;
  close(fd_);
  unlink(temporary_.c_str());
}

void OutputFile::commit() {
  if (fchmod(fd_, ordinaryMode()) != 0 || fsync(fd_) != 0 || rename(temporary_.c_str(), path_.c_str()) != 0) fail();
  close(std::exchange(fd_, -1));
}

void OutputFile::fail() const {
  throw Problem(ExitCode::kFile, path_ + ": cannot be written: " + std::generic_category().message(errno));
}

}  // namespace jxpack
