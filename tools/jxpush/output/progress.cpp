#include "tools/jxpush/output/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string>

#include "base/text.h"
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

// "hello.zip  45 %  12345 of 27000 bytes  11.2 KB/s  0:03 left  2 sent again"
std::string lineOf(const Progress& progress) {
  char text[160];
  std::snprintf(text, sizeof text, "  %u %%  %llu of %llu bytes  %.1f KB/s  %s left", progress.percent(),
                static_cast<unsigned long long>(progress.fileBytes),
                static_cast<unsigned long long>(progress.file->size()), progress.rate() / 1000,
                timeText(progress.secondsLeft()).c_str());
  std::string line = progress.file->name() + text;
  if (progress.sentAgain > 0) line += "  " + std::to_string(progress.sentAgain) + " sent again";
  // A name may hold what a terminal would obey.
  return base::withoutControls(line);
}

// One line that is written over.
class TtyReporter : public ProgressReporter {
 public:
  explicit TtyReporter(std::FILE* stream) : stream_(stream) {}
  void end() override {
    if (drawn_) std::fputc('\n', stream_);
    std::fflush(stream_);
  }

 protected:
  void showWaiting(const std::string& text) override { draw("Waiting for " + text + " ..."); }
  void showInstalling() override { draw("Installing ..."); }
  void show(const Progress& progress) override {
    const bool whole = progress.fileBytes == progress.file->size();
    if (!whole && now() - last_ < kTtyPeriod) return;
    last_ = now();
    draw(lineOf(progress));
  }

 private:
  void draw(std::string line) {
    winsize size{};
    const bool known = ioctl(fileno(stream_), TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    line.resize(std::min<std::size_t>(line.size(), known ? size.ws_col - 1U : 79U));
    std::fprintf(stream_, "\r%s\033[K", line.c_str());
    std::fflush(stream_);
    drawn_ = true;
  }
  std::FILE* stream_;
  double last_ = 0;
  bool drawn_ = false;
};

// Calls `write` for a file's beginning, its end, and some times between.
class LineReporter : public ProgressReporter {
 public:
  explicit LineReporter(std::FILE* stream) : stream_(stream) {}

 protected:
  void show(const Progress& progress) final {
    const bool edge = progress.fileBytes == 0 || progress.fileBytes == progress.file->size();
    if (!edge && now() - last_ < kPeriod) return;
    last_ = now();
    print(text(progress));
  }
  virtual std::string text(const Progress& progress) = 0;
  void print(const std::string& line) {
    std::fprintf(stream_, "%s\n", line.c_str());
    std::fflush(stream_);
  }

 private:
  std::FILE* stream_;
  double last_ = 0;
};

class PlainReporter : public LineReporter {
 public:
  using LineReporter::LineReporter;

 protected:
  void showWaiting(const std::string& text) override { print("Waiting for " + text + " ..."); }
  void showInstalling() override { print("Installing ..."); }
  std::string text(const Progress& progress) override { return lineOf(progress); }
};

class JsonReporter : public LineReporter {
 public:
  using LineReporter::LineReporter;

 protected:
  void showWaiting(const std::string& text) override { print(jsonLine({{"event", "waiting"}, {"for", text}})); }
  void showInstalling() override { print(jsonLine({{"event", "installing"}})); }
  std::string text(const Progress& progress) override {
    nlohmann::json object = {{"event", "progress"},
                             {"file", progress.file->name()},
                             {"percent", progress.percent()},
                             {"acknowledged", progress.fileBytes},
                             {"bytes", progress.file->size()},
                             {"rate", static_cast<std::uint64_t>(progress.rate())},
                             {"sent_again", progress.sentAgain}};
    if (progress.secondsLeft() >= 0) object["seconds_left"] = std::llround(progress.secondsLeft());
    return jsonLine(object);
  }
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

std::unique_ptr<ProgressReporter> makeReporter(ProgressStyle style, std::FILE* stream) {
  if (style == ProgressStyle::kAuto) style = isatty(fileno(stream)) != 0 ? ProgressStyle::kTty : ProgressStyle::kPlain;
  switch (style) {
    case ProgressStyle::kTty:
      return std::make_unique<TtyReporter>(stream);
    case ProgressStyle::kPlain:
      return std::make_unique<PlainReporter>(stream);
    case ProgressStyle::kJson:
      return std::make_unique<JsonReporter>(stream);
    default:
      return std::make_unique<SilentReporter>();
  }
}

}  // namespace jxpush
