// The installer's system calls, under a test's control.
#pragma once

#include <sys/statvfs.h>

#include <functional>
#include <string>
#include <vector>

// One at a time; at its end every call goes through again.
class SystemCalls {
 public:
  SystemCalls();
  ~SystemCalls();
  SystemCalls(const SystemCalls&) = delete;
  SystemCalls& operator=(const SystemCalls&) = delete;

  // Of the calls of that name on a path that ends in `ending`, the first `skipped` go through and the next one fails
  // with `error`.
  void fail(const std::string& name, int error, const std::string& ending = "", int skipped = 0);

  // All of them fail.
  void failAll(const std::string& name, int error, const std::string& ending = "");

  // The calls that change a folder, flush something or pause, in order: the call's name and the last part of each of
  // its paths, as in "renameat .new-a a".
  std::vector<std::string> changes;

  // Called before each call, with its name and path.
  std::function<void(const std::string& name, const std::string& path)> before;

  // Changes what the file system says of itself.
  std::function<void(struct statvfs&)> disk;

  // No pread() takes more bytes than this.
  std::size_t largestRead = std::string::npos;

  // For the wrapped calls: whether this one fails, with errno set.
  bool refuses(const std::string& name, const std::string& path);

 private:
  struct Fault {
    std::string name;
    std::string ending;
    int error;
    int skipped;
    bool always;
  };
  std::vector<Fault> faults_;
};
