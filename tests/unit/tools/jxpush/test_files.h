// Files to send, and what a sending is told.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/jxpush/common/input_file.h"
#include "tools/jxpush/common/target.h"

// A folder with files, removed at the end.
class TestFiles {
 public:
  TestFiles();
  TestFiles(const TestFiles&) = delete;
  TestFiles& operator=(const TestFiles&) = delete;
  ~TestFiles();

  // Makes the file `name` and opens it for sending.
  void add(const std::string& name, const std::string& content);
  std::string path(const std::string& name) const { return folder_ + "/" + name; }
  // Sends none of those made so far.
  void clear() { files_.clear(); }
  const std::vector<jxpush::InputFile>& files() const { return files_; }

 private:
  std::string folder_;
  std::vector<jxpush::InputFile> files_;
};

// `size` bytes in which every value occurs, the same each time.
std::string mixedBytes(std::size_t size);

// STX, `covered`, and its check value.
std::string recordOf(const std::string& covered);

// Records what an observer is told.
class RecordingObserver : public jxpush::Observer {
 public:
  void waiting(const std::string& text) override { waits.push_back(text); }
  void fileBegins(const jxpush::InputFile& file) override { files.push_back(file.name()); }
  void acknowledged(std::uint64_t bytes) override {
    last = bytes;
    if (onAcknowledged) onAcknowledged(bytes);
  }
  void sentAgain(std::uint64_t records) override { again = records; }

  std::vector<std::string> waits;
  std::vector<std::string> files;
  std::uint64_t last = 0;
  std::uint64_t again = 0;
  std::function<void(std::uint64_t)> onAcknowledged;
};
