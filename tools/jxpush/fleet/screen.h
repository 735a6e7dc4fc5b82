// What the user sees of many sendings at once, on standard error.
#pragma once

#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tools/jxpush/fleet/target_list.h"
#include "tools/jxpush/output/progress.h"

namespace jxpush {

// Any thread may call anything; each call blocks while the stream does. With ProgressStyle::kTty each target that is
// under way has a line that is written over, below them stands a count of all; other styles write a line for each
// event.
class FleetScreen {
 public:
  // `style` is not kAuto. `targets` outlive the screen.
  FleetScreen(ProgressStyle style, std::FILE* stream, const std::vector<NamedTarget>& targets);

  // The reporter of a target that begins; the screen outlives it.
  [[nodiscard]] std::unique_ptr<ProgressReporter> begin(std::size_t target);
  // A target has ended. `print` writes what there is to say of it, on any stream, while no line is written over.
  void end(std::size_t target, bool succeeded, const std::function<void()>& print);
  // Why a target's sending pauses.
  void tellPause(std::size_t target, const std::string& text);
  // What the target's line says now; for kTty. `urgent` shows it at once.
  void update(std::size_t target, const std::string& text, bool urgent);
  // Takes the lines away that are written over.
  void close();

  [[nodiscard]] ProgressStyle style() const { return style_; }

 private:
  void writeLine(const std::string& line);
  void clear();
  void draw();

  const ProgressStyle style_;
  std::FILE* const stream_;
  const std::vector<NamedTarget>& targets_;
  std::mutex mutex_;                          // guards what follows, and the writing
  std::map<std::size_t, std::string> lines_;  // of the targets under way
  std::size_t drawn_ = 0;                     // lines on the terminal, with the count
  double lastDraw_ = 0;
  std::size_t ended_ = 0;
  std::size_t failed_ = 0;
};

// `target` as messages name it, fit for a user's terminal.
[[nodiscard]] std::string shownName(const NamedTarget& target, std::FILE* stream);

}  // namespace jxpush
