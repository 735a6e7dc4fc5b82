// A file that appears under its name only when it is whole.
#pragma once

#include <string>

namespace jxpack {

class OutputFile {
 public:
  // Creates a temporary file beside `path`. Throws Problem.
  explicit OutputFile(std::string path);

  // Removes the temporary file unless commit() was called.
  ~OutputFile();

  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  int fd() const { return fd_; }

  // Brings the file to the disk and gives it its name, in the place of what had it. Throws Problem.
  void commit();

 private:
  [[noreturn]] void fail() const;

  std::string path_;
  std::string temporary_;
  int fd_ = -1;
};

}  // namespace jxpack
