#include "tools/jxpush/serial/sender.h"

#include <algorithm>

#include "serial/wire.h"
#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/serial/records.h"

namespace jxpush {

namespace {

constexpr int kAttempts = 8;  // for one record
constexpr std::chrono::milliseconds kMessagePeriod{2000};

const std::string kEmptyData = dataRecord(0, nullptr, 0);

[[noreturn]] void giveUp(const std::string& why) { throw Problem(ExitCode::kGaveUp, why); }

}  // namespace

SerialSender::SerialSender(Line& line, Observer& observer, Outcome& outcome, const SerialTimes& times)
    : line_(line), link_(line, times), observer_(observer), outcome_(outcome) {}

void SerialSender::send(const std::vector<InputFile>& files, int waitSeconds) try {
  observer_.waiting("the terminal to answer");
  link_.connect(waitSeconds);
  connected_ = true;
  closeFile();  // one that a killed sender has left open
  for (std::size_t i = 0; i < files.size(); ++i) sendFile(files[i], i + 1, files.size());
  finish();
} catch (const Interrupted&) {
  if (!connected_) throw Problem(ExitCode::kInterrupted, "interrupted before the terminal answered");
  throw Problem(ExitCode::kInterrupted,
                cancel() ? "interrupted; the terminal was told to drop the download"
                         : "interrupted; the terminal did not confirm that it dropped the download: see its screen");
} catch (const Problem& problem) {
  if (connected_ && problem.code() != ExitCode::kRefused) cancel();
  throw;
}

void SerialSender::sendFile(const InputFile& file, std::size_t number, std::size_t count) {
  observer_.fileBegins(file);
  shownName_ = file.name();
  shownPlace_ = count > 1 ? " (" + std::to_string(number) + " of " + std::to_string(count) + ")" : "";
  shownPercent_.reset();
  open(file.name());
  sendContent(file);
  file.checkUnchanged();
  closeFile();
}

void SerialSender::open(const std::string& name) {
  // A second one would begin a second file and leave the first one empty. An empty data record is accepted only while a
  // file is open, which none was before; refusing it ends the download with a code.
  count(false);
  last_ = kEmptyData;
  if (link_.sendAlone(openRecord(name)) == Answer::kTaken) return;
  try {
    deliver(kEmptyData);
  } catch (const Problem& problem) {
    if (problem.code() != ExitCode::kRefused) throw;
    throw Problem(
        ExitCode::kRefused,
        "the line damaged the beginning of a file, and the terminal ended the download: start it anew on its screen");
  }
}

void SerialSender::sendContent(const InputFile& file) {
  showMessage(0, file.size());
  if (file.size() == 0) return deliver(kEmptyData);  // tells that the file is open
  char block[tessolan::kLargestData];
  for (std::uint64_t done = 0; done < file.size();) {
    const auto offset = static_cast<std::uint32_t>(done);
    auto size = static_cast<std::size_t>(std::min<std::uint64_t>(link_.largestData(), file.size() - done));
    file.read(done, block, size);
    size = safeDataSize(offset, block, size);
    deliver(dataRecord(offset, block, size));
    done += size;
    observer_.acknowledged(done);
    showMessage(done, file.size());
  }
}

void SerialSender::closeFile() {
  deliver("");  // behind the end of the file its data can no longer be sent again
  deliver(closeRecord());
  deliver("");
}

void SerialSender::finish() {
  if (link_.finish()) return;
  throw Problem(ExitCode::kGaveUp,
                "the terminal has all files, but did not confirm the end; its screen says whether it installed them")
      .forGood();
}

bool SerialSender::cancel() noexcept {
  try {
    return link_.cancel();
  } catch (...) {
    return false;  // the line is gone: the terminal waits until its operator ends the download
  }
}

void SerialSender::showMessage(std::uint64_t bytes, std::uint64_t size) {
  const std::uint64_t percent = size == 0 ? 100 : bytes * 100 / size;
  if (shownPercent_ && (percent == *shownPercent_ || line_.now() - lastMessage_ < kMessagePeriod)) return;
  deliver(messageRecord(shownName_, shownPlace_ + ": " + std::to_string(percent) + " %"));
  shownPercent_ = percent;
  lastMessage_ = line_.now();
}

// Sends `record` until it is acknowledged, and the one before it once more whenever that turns out to be in doubt. An
// empty record just looks whether it is.
void SerialSender::deliver(const std::string& record) {
  bool lastInDoubt = false;
  bool again = false;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (lastInDoubt) {
      lastInDoubt = exchange(last_, true) != Answer::kTaken;
      continue;
    }
    const Answer answer = exchange(record, again);
    if (answer == Answer::kTaken) {
      last_ = record;
      return;
    }
    lastInDoubt = answer == Answer::kDoubted && !last_.empty();
    again = true;
  }
  giveUp("the same record failed " + std::to_string(kAttempts) + " times");
}

SerialSender::Answer SerialSender::exchange(const std::string& record, bool again) {
  if (!record.empty()) count(again);
  return link_.send(record);
}

void SerialSender::count(bool again) {
  ++outcome_.records;
  if (again) observer_.sentAgain(++outcome_.sentAgain);
}

}  // namespace jxpush
