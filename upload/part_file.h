// The file into which one part of a form is stored, whole or not at all.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>

// One file after the other being written; one that is not kept is removed. One thread.
class PartFile {
 public:
  PartFile() = default;
  PartFile(const PartFile&) = delete;
  PartFile& operator=(const PartFile&) = delete;
  ~PartFile();

  // Creates the file `path`, or empties the one that is there. False when it cannot be written to; nothing is removed
  // then. Not while another is open.
  [[nodiscard]] bool open(const std::string& path);

  // Writes `size` bytes; without an open file does nothing. A failure shows in failed() or keep().
  void write(const char* data, std::size_t size);
  bool failed() const;

  // Closes the file. True when every byte has been stored; otherwise the file is removed.
  [[nodiscard]] bool keep();

  // Closes and removes a file that is open.
  void discard();

 private:
  [[nodiscard]] bool close();

  std::string path_;
  std::unique_ptr<char[]> buffer_;
  std::FILE* stream_ = nullptr;
};
