#include "tools/jxpush/fleet/screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "tools/jxpush/common/display_text.h"
#include "tools/jxpush/common/json_line.h"

namespace jxpush {

namespace {

constexpr double kPeriod = 0.1;

double now() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

std::size_t rowsOfTerminal(std::FILE* stream) {
  constexpr std::size_t kUsual = 24;
  winsize size{};
  return ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_row > 2 ? size.ws_row : kUsual;
}

// Hands a target's progress to its line on the screen.
class LiveReporter : public ProgressReporter {
 public:
  LiveReporter(FleetScreen& screen, std::size_t target) : screen_(screen), target_(target) {}

 protected:
  void showWaiting(const std::string& text) override { screen_.update(target_, "Waiting for " + text + " ...", true); }
  void showInstalling() override { screen_.update(target_, "Installing ...", true); }
  void show(const Progress& progress) override { screen_.update(target_, progressText(progress), false); }

 private:
  FleetScreen& screen_;
  const std::size_t target_;
};

}  // namespace

std::string shownName(const NamedTarget& target, std::FILE* stream) { return displayText(target.name, stream); }

FleetScreen::FleetScreen(ProgressStyle style, std::FILE* stream, const std::vector<NamedTarget>& targets)
    : style_(style), stream_(stream), targets_(targets) {}

std::unique_ptr<ProgressReporter> FleetScreen::begin(std::size_t target) {
  const LineSink sink = [this](const std::string& line) {
    const std::lock_guard<std::mutex> guard(mutex_);
    writeLine(line);
  };
  switch (style_) {
    case ProgressStyle::kTty:
      return std::make_unique<LiveReporter>(*this, target);
    case ProgressStyle::kPlain:
      return makePlainReporter([this, sink](const std::string& line) { sink(displayText(line, stream_)); },
                               targets_[target].name + ": ");
    case ProgressStyle::kJson:
      return makeJsonReporter(sink, targets_[target].address, isatty(fileno(stream_)) != 0);
    default:
      return std::make_unique<ProgressReporter>();
  }
}

void FleetScreen::end(std::size_t target, bool succeeded, const std::function<void()>& print) {
  const std::lock_guard<std::mutex> guard(mutex_);
  lines_.erase(target);
  ++ended_;
  failed_ += succeeded ? 0 : 1;
  clear();
  print();
  draw();
}

void FleetScreen::tellPause(std::size_t target, const std::string& text) {
  const std::lock_guard<std::mutex> guard(mutex_);
  clear();
  if (style_ == ProgressStyle::kJson) {
    writeLine(jsonLine({{"event", "retry"}, {"target", targets_[target].address}, {"message", text}}, stream_));
  } else {
    writeLine("jxpush: " + displayText(targets_[target].name + ": " + text, stream_));
  }
  if (style_ == ProgressStyle::kTty) lines_[target] = "Pausing ...";
  draw();
}

void FleetScreen::update(std::size_t target, const std::string& text, bool urgent) {
  const std::lock_guard<std::mutex> guard(mutex_);
  lines_[target] = text;
  if (urgent || now() - lastDraw_ >= kPeriod) draw();
}

void FleetScreen::close() {
  const std::lock_guard<std::mutex> guard(mutex_);
  lines_.clear();
  clear();
}

void FleetScreen::writeLine(const std::string& line) {
  std::fprintf(stream_, "%s\n", line.c_str());
  std::fflush(stream_);
}

void FleetScreen::clear() {
  if (drawn_ == 0) return;
  // The cursor stands behind the last line.
  std::fprintf(stream_, "\r");
  if (drawn_ > 1) std::fprintf(stream_, "\033[%zuA", drawn_ - 1);
  std::fprintf(stream_, "\033[J");
  std::fflush(stream_);
  drawn_ = 0;
}

// All in one write, so that nothing flickers.
void FleetScreen::draw() {
  if (style_ != ProgressStyle::kTty || ended_ == targets_.size()) return;
  const std::size_t columns = columnsOfTerminal(stream_) - 1;
  const std::size_t most = rowsOfTerminal(stream_) - 1;
  std::string text = "\r";
  if (drawn_ > 1) text += "\033[" + std::to_string(drawn_ - 1) + "A";
  text += "\033[J";
  drawn_ = 1;
  for (const auto& [target, line] : lines_) {
    if (drawn_ == most) break;
    text += cutToColumns(displayText(targets_[target].name + "  " + line, stream_), columns) + "\r\n";
    ++drawn_;
  }
  std::string count = std::to_string(ended_) + " of " + std::to_string(targets_.size()) + " done";
  if (failed_ > 0) count += ", " + std::to_string(failed_) + " failed";
  count += ", " + std::to_string(lines_.size()) + " under way";
  text += cutToColumns(count, columns);
  std::fputs(text.c_str(), stream_);
  std::fflush(stream_);
  lastDraw_ = now();
}

}  // namespace jxpush
