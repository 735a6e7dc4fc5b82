// How far the sending is, for people and programs, on standard error.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
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
  // The sending begins anew after a failure.
  void startOver();
  // After each sending, whether it succeeded or not.
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

// The style that kAuto stands for on `stream`; any other stands for itself.
[[nodiscard]] ProgressStyle styleFor(ProgressStyle style, std::FILE* stream);

// The reporter of a style; it writes to `stream`.
[[nodiscard]] std::unique_ptr<ProgressReporter> makeReporter(ProgressStyle style, std::FILE* stream);

// Takes a line, without its end.
using LineSink = std::function<void(const std::string&)>;

// Reporters that hand their lines to `print`: text, with `prefix` before each; and objects, which say `target` unless
// it is empty, with nothing but ASCII in them where `ascii` says so.
[[nodiscard]] std::unique_ptr<ProgressReporter> makePlainReporter(LineSink print, const std::string& prefix);
[[nodiscard]] std::unique_ptr<ProgressReporter> makeJsonReporter(LineSink print, const std::string& target, bool ascii);

// "hello.zip  45 %  12345 of 27000 bytes  11.2 KB/s  0:03 left  2 sent again", fit for a user's terminal.
[[nodiscard]] std::string progressText(const Progress& progress);

}  // namespace jxpush
