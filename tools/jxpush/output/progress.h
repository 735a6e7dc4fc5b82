// How far the sending is, for people and programs, on standard error.
#pragma once

#include <cstdio>
#include <memory>
#include <vector>

#include "tools/jxpush/common/input_file.h"
#include "tools/jxpush/common/options.h"
#include "tools/jxpush/common/target.h"

namespace jxpush {

// How far a sending is.
struct Progress {
  const InputFile* file = nullptr;
  std::uint64_t fileBytes = 0;  // acknowledged of this file
  std::uint64_t bytes = 0;      // acknowledged of all files
  std::uint64_t total = 0;
  std::uint64_t sentAgain = 0;
  double seconds = 0;                        // since the first file began
  [[nodiscard]] unsigned percent() const;    // of this file
  [[nodiscard]] double rate() const;         // bytes a second
  [[nodiscard]] double secondsLeft() const;  // for all files; negative: not known
};

// Keeps count and hands each change on, in its style, to `show` and `end`.
class ProgressReporter : public Observer {
 public:
  ~ProgressReporter() override = default;
  // Once before the sending: the bytes of all its files.
  void setTotal(std::uint64_t bytes) { progress_.total = bytes; }
  // Once after the sending, whether it succeeded or not.
  virtual void end() {}
  [[nodiscard]] double seconds() const { return progress_.seconds; }

  void waiting(const std::string& text) override;
  void fileBegins(const InputFile& file) final;
  void acknowledged(std::uint64_t bytes) final;
  void sentAgain(std::uint64_t records) final;
  void installing() override { showInstalling(); }

 protected:
  virtual void showWaiting(const std::string& /*text*/) {}
  virtual void showInstalling() {}
  virtual void show(const Progress& /*progress*/) {}

 private:
  void update();
  Progress progress_;
  std::uint64_t bytesBefore_ = 0;  // of the files before this one
  double began_ = -1;
};

// The reporter of a style; it writes to `stream`.
[[nodiscard]] std::unique_ptr<ProgressReporter> makeReporter(ProgressStyle style, std::FILE* stream);

}  // namespace jxpush
