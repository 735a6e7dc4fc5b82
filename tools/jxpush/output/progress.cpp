#include "tools/jxpush/output/progress.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include "tools/jxpush/common/display_text.h"
#include "tools/jxpush/common/json_line.h"

namespace jxpush {

namespace {

constexpr double kTtyPeriod = 0.1;
constexpr double kPeriod = 5;  // of lines that stay

double now() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

std::string timeText(double seconds) {
  if (seconds < 0) return "--:--";
  const auto whole = static_cast<unsigned long>(std::llround(seconds));
  char text[32];
  std::snprintf(text, sizeof text, "%lu:%02lu", whole / 60, whole % 60);
  return text;
}

// One line that is written over.
class TtyReporter : public ProgressReporter {
 public:
  explicit TtyReporter(std::FILE* stream) : stream_(stream) {}
  void end() override {
    if (drawn_) std::fputc('\n', stream_);
    std::fflush(stream_);
    drawn_ = false;
  }

 protected:
  void showWaiting(const std::string& text) override { draw("Waiting for " + text + " ..."); }
  void showInstalling() override { draw("Installing ..."); }
  void show(const Progress& progress) override {
    const bool whole = progress.fileBytes == progress.file->size();
    if (!whole && now() - last_ < kTtyPeriod) return;
    last_ = now();
    draw(progressText(progress));
  }

 private:
  void draw(const std::string& text) {
    const std::string line = cutToColumns(displayText(text, stream_), columnsOfTerminal(stream_) - 1);
    std::fprintf(stream_, "\r%s\033[K", line.c_str());
    std::fflush(stream_);
    drawn_ = true;
  }
  std::FILE* stream_;
  double last_ = 0;
  bool drawn_ = false;
};

// Prints a line for a file's beginning, its end, and some times between.
class LineReporter : public ProgressReporter {
 public:
  explicit LineReporter(LineSink print) : print_(std::move(print)) {}

 protected:
  void show(const Progress& progress) final {
    const bool edge = progress.fileBytes == 0 || progress.fileBytes == progress.file->size();
    if (!edge && now() - last_ < kPeriod) return;
    last_ = now();
    print_(text(progress));
  }
  virtual std::string text(const Progress& progress) = 0;
  void print(const std::string& line) { print_(line); }

 private:
  const LineSink print_;
  double last_ = 0;
};

class PlainReporter : public LineReporter {
 public:
  PlainReporter(LineSink print, std::string prefix) : LineReporter(std::move(print)), prefix_(std::move(prefix)) {}

 protected:
  void showWaiting(const std::string& text) override { print(prefix_ + "Waiting for " + text + " ..."); }
  void showInstalling() override { print(prefix_ + "Installing ..."); }
  std::string text(const Progress& progress) override { return prefix_ + progressText(progress); }

 private:
  const std::string prefix_;
};

class JsonReporter : public LineReporter {
 public:
  JsonReporter(LineSink print, std::string target, bool ascii)
      : LineReporter(std::move(print)), target_(std::move(target)), ascii_(ascii) {}

 protected:
  void showWaiting(const std::string& text) override { printObject({{"event", "waiting"}, {"for", text}}); }
  void showInstalling() override { printObject({{"event", "installing"}}); }
  std::string text(const Progress& progress) override {
    nlohmann::json object = {{"event", "progress"},
                             {"file", progress.file->name()},
                             {"percent", progress.percent()},
                             {"acknowledged", progress.fileBytes},
                             {"bytes", progress.file->size()},
                             {"rate", static_cast<std::uint64_t>(progress.rate())},
                             {"sent_again", progress.sentAgain}};
    if (progress.secondsLeft() >= 0) object["seconds_left"] = std::llround(progress.secondsLeft());
    return lineOf(std::move(object));
  }

 private:
  std::string lineOf(nlohmann::json object) const {
    if (!target_.empty()) object["target"] = target_;
    return jsonLine(object, ascii_);
  }
  void printObject(nlohmann::json object) { print(lineOf(std::move(object))); }
  const std::string target_;
  const bool ascii_;
};

class SilentReporter : public ProgressReporter {};

}  // namespace

unsigned Progress::percent() const {
  return file->size() == 0 ? 100 : static_cast<unsigned>(fileBytes * 100 / file->size());
}

double Progress::rate() const { return seconds > 0 ? static_cast<double>(bytes) / seconds : 0; }

double Progress::secondsLeft() const { return rate() > 0 ? static_cast<double>(total - bytes) / rate() : -1; }

void ProgressReporter::waiting(const std::string& text) { showWaiting(text); }

void ProgressReporter::fileBegins(const InputFile& file) {
  if (began_ < 0) began_ = now();
  if (progress_.file != nullptr) bytesBefore_ += progress_.file->size();
  progress_.file = &file;
  progress_.fileBytes = 0;
  update();
}

// Bytes that are sent once more have been counted before.
void ProgressReporter::acknowledged(std::uint64_t bytes) {
  progress_.fileBytes = std::max(progress_.fileBytes, bytes);
  update();
}

void ProgressReporter::sentAgain(std::uint64_t records) { progress_.sentAgain = records; }

void ProgressReporter::update() {
  progress_.bytes = bytesBefore_ + progress_.fileBytes;
  progress_.seconds = now() - began_;
  show(progress_);
}

void ProgressReporter::startOver() {
  const std::uint64_t total = progress_.total;
  progress_ = Progress();
  progress_.total = total;
  bytesBefore_ = 0;
  began_ = -1;
}

std::string progressText(const Progress& progress) {
  char text[160];
  std::snprintf(text, sizeof text, "  %u %%  %llu of %llu bytes  %.1f KB/s  %s left", progress.percent(),
                static_cast<unsigned long long>(progress.fileBytes),
                static_cast<unsigned long long>(progress.file->size()), progress.rate() / 1000,
                timeText(progress.secondsLeft()).c_str());
  std::string line = displayText(progress.file->name()) + text;
  if (progress.sentAgain > 0) line += "  " + std::to_string(progress.sentAgain) + " sent again";
  return line;
}

ProgressStyle styleFor(ProgressStyle style, std::FILE* stream) {
  if (style != ProgressStyle::kAuto) return style;
  return isLively(stream) ? ProgressStyle::kTty : ProgressStyle::kPlain;
}

std::unique_ptr<ProgressReporter> makePlainReporter(LineSink print, const std::string& prefix) {
  return std::make_unique<PlainReporter>(std::move(print), prefix);
}

std::unique_ptr<ProgressReporter> makeJsonReporter(LineSink print, const std::string& target, bool ascii) {
  return std::make_unique<JsonReporter>(std::move(print), target, ascii);
}

std::unique_ptr<ProgressReporter> makeReporter(ProgressStyle style, std::FILE* stream) {
  const LineSink toStream = [stream](const std::string& line) {
    std::fprintf(stream, "%s\n", line.c_str());
    std::fflush(stream);
  };
  // What is JSON says names as they are; elsewhere they must not reach a terminal so.
  const LineSink toReader = [stream, toStream](const std::string& line) { toStream(displayText(line, stream)); };
  switch (styleFor(style, stream)) {
    case ProgressStyle::kTty:
      return std::make_unique<TtyReporter>(stream);
    case ProgressStyle::kPlain:
      return makePlainReporter(toReader, "");
    case ProgressStyle::kJson:
      return makeJsonReporter(toStream, "", isatty(fileno(stream)) != 0);
    default:
      return std::make_unique<SilentReporter>();
  }
}

}  // namespace jxpush
