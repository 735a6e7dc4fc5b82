#include "tools/jxpush/serial_sender.h"

#include <algorithm>
#include <utility>

#include "serial/wire.h"
#include "tools/jxpush/problem.h"
#include "tools/jxpush/serial_records.h"

namespace jxpush {

namespace {

constexpr int kAttempts = 8;       // for one record, one group of records
constexpr int kEnquiries = 5;      // until a terminal that was there counts as gone
constexpr int kLastEnquiries = 2;  // of one that seems to have ended
constexpr int kEnds = 3;
constexpr std::size_t kGroup = 64;         // data records between two looks whether both ends are in step
constexpr std::size_t kNoiseLimit = 4096;  // bytes read in search of one answer
constexpr std::size_t kEndNoise = 64;      // bytes read in search of the last one

const std::string kAck(1, static_cast<char>(tessolan::kACK));
const std::string kNak(1, static_cast<char>(tessolan::kNAK));

[[noreturn]] void giveUp(const std::string& why) { throw Problem(ExitCode::kGaveUp, why); }

[[noreturn]] void refused() {
  throw Problem(ExitCode::kRefused, "the terminal ended the download: it refused a record, or the operator aborted");
}

bool holds(const std::string& bytes, unsigned char byte) {
  return bytes.find(static_cast<char>(byte)) != std::string::npos;
}

}  // namespace

SerialSender::SerialSender(BytePort& port, Observer& observer, Outcome& outcome, const SerialTimes& times)
    : port_(port), observer_(observer), outcome_(outcome), times_(times) {}

void SerialSender::send(const std::vector<InputFile>& files, int waitSeconds) try {
  connect(waitSeconds);
  for (std::size_t i = 0; i < files.size(); ++i) sendFile(files[i], i + 1, files.size());
  finish();
} catch (const Interrupted&) {
  cancel();
  throw Problem(ExitCode::kInterrupted, connected_ ? "interrupted; the terminal was told to drop the download"
                                                   : "interrupted before the terminal answered");
} catch (const Problem& problem) {
  if (problem.code() != ExitCode::kRefused) cancel();
  throw;
}

void SerialSender::connect(int waitSeconds) {
  observer_.waiting("the terminal to answer");
  const auto end = Clock::now() + std::chrono::seconds(waitSeconds);
  while (!enquire(1, times_.connectMs)) {
    if (Clock::now() >= end) giveUp("the terminal did not answer within " + std::to_string(waitSeconds) + " s");
  }
  connected_ = true;
  settle();
}

void SerialSender::sendFile(const InputFile& file, std::size_t number, std::size_t count) {
  observer_.fileBegins(file);
  messageHead_ = file.name() + (count > 1 ? " (" + std::to_string(number) + " of " + std::to_string(count) + ")" : "");
  lastMessage_ = Clock::time_point();
  shownPercent_ = 101;
  open(file.name());
  sendContent(file);
  file.checkUnchanged();
  closeFile();
}

void SerialSender::open(const std::string& name) {
  const std::string record = openRecord(name);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const Answer answer = exchange(record, attempt == 0 ? Round::First : Round::Again);
    if (answer == Answer::Taken) return;
    // A second record would begin a second file and leave the first one empty. An empty data record is accepted only
    // while a file is open; refusing it ends the download with a code.
    if (answer == Answer::Lost) return deliver(dataRecord(0, nullptr, 0));
  }
  giveUp("the terminal did not understand the beginning of a file");
}

void SerialSender::sendContent(const InputFile& file) {
  showMessage(0, file.size());
  std::uint64_t done = 0;
  while (done < file.size()) {
    const std::uint64_t end = std::min<std::uint64_t>(file.size(), done + kGroup * largestData_);
    sendGroup(file, done, end, Round::First);
    // Surplus answers: some record of the group may not have been taken. Data records can be repeated at will.
    for (int attempt = 1; !inStep(); ++attempt) {
      if (attempt == kAttempts) giveUp("the line makes up answers");
      sendGroup(file, done, end, Round::Again);
    }
    done = end;
  }
}

void SerialSender::sendGroup(const InputFile& file, std::uint64_t from, std::uint64_t to, Round round) {
  char block[tessolan::kLargestData];
  while (from < to) {
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(largestData_, to - from));
    file.read(from, block, size);
    deliver(dataRecord(static_cast<std::uint32_t>(from), block, size), round);
    from += size;
    observer_.acknowledged(from);
    showMessage(from, file.size());
  }
}

void SerialSender::closeFile() {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    deliver(closeRecord(), attempt == 0 ? Round::First : Round::Again);
    if (inStep()) return;
  }
  giveUp("the line makes up answers");
}

void SerialSender::finish() {
  port_.ignoreInterrupts();  // once the end is on its way there is nothing to take back
  for (int attempt = 0; attempt < kEnds; ++attempt) {
    sendByte(tessolan::kEOT);
    if (readEnd()) return;
    // A terminal that still answers has not seen the end.
    std::string noise;
    if (!ask(kLastEnquiries, times_.enquiryMs, noise)) break;
  }
  giveUp("the terminal has all files, but did not confirm the end; its screen says whether it installed them");
}

// The terminal's EOT, whatever the line put before it; in what begins as a parameter record it would mean nothing.
bool SerialSender::readEnd() {
  int byte = port_.readByte(times_.answerMs);
  for (std::size_t count = 0; count < kEndNoise && byte >= 0; ++count) {
    if (byte == tessolan::kEOT || byte == tessolan::kSTX) return byte == tessolan::kEOT;
    byte = port_.readByte(times_.gapMs);
  }
  return false;
}

void SerialSender::cancel() noexcept {
  try {
    if (connected_) tryToCancel();
  } catch (...) {
    // The line is gone: the terminal waits until its operator ends the download.
  }
}

void SerialSender::tryToCancel() {
  port_.ignoreInterrupts();
  for (int attempt = 0; attempt < kEnds; ++attempt) {
    if (!enquire(kLastEnquiries, times_.enquiryMs)) return;
    port_.write(cancelRecord().data(), cancelRecord().size());
    if (port_.readByte(times_.answerMs) == tessolan::kEOT) return;
  }
}

void SerialSender::showMessage(std::uint64_t bytes, std::uint64_t size) {
  const std::uint64_t percent = size == 0 ? 100 : bytes * 100 / size;
  const auto now = Clock::now();
  if (percent == shownPercent_ || now - lastMessage_ < std::chrono::milliseconds(times_.messageMs)) return;
  deliver(messageRecord(messageHead_ + ": " + std::to_string(percent) + " %"));
  shownPercent_ = percent;
  lastMessage_ = now;
}

void SerialSender::deliver(const std::string& record, Round round) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (exchange(record, attempt == 0 ? round : Round::Again) == Answer::Taken) return;
  }
  giveUp("the same record failed " + std::to_string(kAttempts) + " times");
}

SerialSender::Answer SerialSender::exchange(const std::string& record, Round round) {
  dropSurplus();
  count(round);
  port_.write(record.data(), record.size());
  const int byte = port_.readByte(times_.answerMs);
  return byte == tessolan::kACK ? Answer::Taken : judge(byte);
}

// An answer that is there before its record was sent belongs to none.
void SerialSender::dropSurplus() {
  if (port_.readByte(0) < 0) return;
  doubt_ = true;
  if (!enquire(kEnquiries, times_.enquiryMs)) giveUp("the terminal does not answer any more");
}

// What a record's answer means that is not a plain ACK; -1 stands for silence.
SerialSender::Answer SerialSender::judge(int byte) {
  const std::string first = byte < 0 ? "" : std::string(1, static_cast<char>(byte));
  const bool ended = byte == tessolan::kEOT;
  const std::optional<std::string> more = enquire(ended ? kLastEnquiries : kEnquiries, times_.enquiryMs);
  if (!more && ended) refused();
  if (!more) giveUp("the terminal does not answer any more");
  const std::string answers = first + *more;
  if (answers == kAck) return Answer::Taken;
  return answers == kNak ? Answer::Refused : Answer::Lost;
}

// Brings both ends in step. Returns what came before the parameter record, nothing when none came; throws when the
// terminal has ended the download instead.
std::optional<std::string> SerialSender::enquire(int attempts, int timeoutMs) {
  std::string before;
  if (ask(attempts, timeoutMs, before)) return before;
  if (holds(before, tessolan::kEOT) && connected_) refused();
  return std::nullopt;
}

// True when a parameter record came; `before` then holds what came before it, otherwise all that came.
bool SerialSender::ask(int attempts, int timeoutMs, std::string& before) {
  for (int attempt = 0; attempt < attempts; ++attempt) {
    sendByte(tessolan::kENQ);
    if (readParameters(timeoutMs, before)) {
      if (!before.empty()) settle();
      return true;
    }
  }
  return false;
}

// Appends what is no parameter record to `before`.
bool SerialSender::readParameters(int timeoutMs, std::string& before) {
  ParameterReader reader;
  std::string seen;
  int byte = port_.readByte(timeoutMs);
  while (byte >= 0 && seen.size() < kNoiseLimit) {
    seen += static_cast<char>(byte);
    if (reader.take(static_cast<unsigned char>(byte))) {
      largestData_ = reader.largestData();
      before += seen.substr(0, reader.skipped());
      return true;
    }
    byte = port_.readByte(times_.gapMs);
  }
  before += seen;
  return false;
}

// True when no answer was made up since the last call and the terminal has none left to give. What begins as a
// parameter record is one that the line damaged.
bool SerialSender::inStep() {
  const std::optional<std::string> before = enquire(kEnquiries, times_.enquiryMs);
  if (!before) giveUp("the terminal does not answer any more");
  const bool surplus = !before->empty() && before->front() != static_cast<char>(tessolan::kSTX);
  return !std::exchange(doubt_, false) && !surplus;
}

void SerialSender::settle() {
  for (std::size_t count = 0; count < kNoiseLimit && port_.readByte(times_.settleMs) >= 0; ++count) {
  }
}

void SerialSender::sendByte(unsigned char byte) { port_.write(&byte, 1); }

void SerialSender::count(Round round) {
  ++outcome_.records;
  if (round == Round::Again) observer_.sentAgain(++outcome_.sentAgain);
}

}  // namespace jxpush
