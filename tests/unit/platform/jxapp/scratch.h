// A folder that lives as long as a test, and files in it.
#pragma once

#include <string>
#include <vector>

class Scratch {
 public:
  Scratch();
  ~Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  const std::string& path() const { return path_; }

  // Writes a file below the folder, and the directories on the way to it.
  void write(const std::string& file, const std::string& content) const;

  // The content of a file below the folder; "<none>" when there is none.
  std::string read(const std::string& file) const;

  bool exists(const std::string& file) const;

  // The permission bits.
  unsigned mode(const std::string& file) const;

  // Everything below `directory`, sorted: files with their content as "path=content", directories as "path/", links as
  // "path@".
  std::vector<std::string> tree(const std::string& directory = "") const;

 private:
  std::string path_;
};

// A file without a name that holds `content`; the descriptor is the caller's.
int anonymousFile(const std::string& content);
