#include "tools/jxpush/serial/link.h"

#include <algorithm>
#include <climits>
#include <cstdint>

#include "serial/wire.h"
#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/serial/records.h"

namespace jxpush {

namespace {

constexpr int kEnquiries = 5;      // until a terminal that was there counts as gone
constexpr int kLastEnquiries = 2;  // of one that seems to have ended
constexpr int kEnds = 3;           // of each kind

const std::string kEnquiry(1, static_cast<char>(tessolan::kENQ));

[[noreturn]] void giveUp(const std::string& why) { throw Problem(ExitCode::kGaveUp, why); }

[[noreturn]] void refused() {
  throw Problem(ExitCode::kRefused, "the terminal ended the download: it refused a record, or the operator aborted");
}

}  // namespace

void SerialLink::connect(int waitSeconds) {
  const Line::Time end = line_.now() + std::chrono::seconds(waitSeconds);
  do {
    const Line::Time latest = end + std::chrono::milliseconds(times_.overtimeMs);
    // A line that takes no bytes yet, as a USB gadget's before the terminal opens its end, is waited for as well.
    line_.offer(tessolan::kENQ);
    if (awaitParameters(std::min(after(times_.connectMs), latest), times_.connectMs) && settle(latest)) return;
  } while (line_.now() < end);
  giveUp("the terminal did not answer within " + std::to_string(waitSeconds) + " s" +
         (heard_ ? "; what came is no answer of a terminal, but of a console, say" : ""));
}

SerialLink::Answer SerialLink::send(const std::string& record) {
  const std::string bytes = kEnquiry + record;
  line_.write(bytes.data(), bytes.size());
  if (!awaitParameters(after(times_.answerMs), times_.gapMs) || !clean_) {
    resync();
    return Answer::kDoubted;
  }
  return record.empty() ? Answer::kTaken : readAnswer();
}

SerialLink::Answer SerialLink::sendAlone(const std::string& record) {
  line_.write(record.data(), record.size());
  return readAnswer();
}

SerialLink::Answer SerialLink::readAnswer() {
  if (hear(times_.answerMs) == tessolan::kACK) return Answer::kTaken;
  // Not even a lone NAK tells that the record was refused: it may have been an ACK.
  resync();
  return Answer::kUnknown;
}

bool SerialLink::finish() {
  line_.ignoreInterrupts();  // once the end is on its way there is nothing to take back
  for (int attempt = 0; attempt < kEnds; ++attempt) {
    sendByte(tessolan::kEOT);
    if (awaitEnd()) return true;
    // A terminal that still answers has not seen the end.
    if (!enquire() && !enquire()) return false;
  }
  return false;
}

// The terminal's EOT, whatever the line put before it. It is the last that the terminal says: where something else
// follows, or what began as a parameter record, it means nothing.
bool SerialLink::awaitEnd() {
  const Line::Time until = after(times_.answerMs);
  int byte = hear(times_.answerMs);
  while (byte >= 0 && byte != tessolan::kEOT && byte != tessolan::kSTX) byte = hearUntil(until, times_.gapMs);
  while (byte == tessolan::kEOT) byte = hear(times_.settleMs);
  return byte < 0 && ended_;
}

bool SerialLink::cancel() {
  line_.ignoreInterrupts();
  const std::string record = cancelRecord();
  for (int attempt = 0; attempt < kEnds; ++attempt) {
    // Answered or not: the wait ends a record which the terminal may still be in.
    enquire();
    line_.write(record.data(), record.size());
    const Line::Time until = after(times_.enquiryMs);
    while (!ended_ && hearUntil(until, times_.enquiryMs) >= 0) {
    }
    if (ended_) return true;
  }
  return false;
}

bool SerialLink::enquire() {
  sendByte(tessolan::kENQ);
  return awaitParameters(after(times_.enquiryMs), times_.gapMs);
}

// Brings both ends in step, or throws what keeps them from it.
void SerialLink::resync() {
  heard_ = false;
  int silent = 0;  // enquiries without an answer, one after the other
  for (int attempt = 0; attempt < kEnquiries && !(ended_ && silent >= kLastEnquiries); ++attempt) {
    if (!enquire()) {
      ++silent;
    } else if (settle(after(times_.noiseMs))) {
      return;
    } else {
      silent = 0;
    }
  }
  if (ended_) refused();
  giveUp(heard_ ? "the line is too bad: the terminal's answers arrive damaged"
                : "the terminal does not answer any more");
}

// Waits until `until` for a parameter record, `gapMs` at most between two bytes.
bool SerialLink::awaitParameters(Line::Time until, int gapMs) {
  ParameterReader reader;
  for (int byte = hearUntil(until, INT_MAX); byte >= 0; byte = hearUntil(until, gapMs)) {
    if (!reader.take(static_cast<unsigned char>(byte))) continue;
    largestData_ = reader.largestData();
    clean_ = reader.skipped() == 0;
    ended_ = false;  // an EOT before it was noise
    return true;
  }
  return false;
}

// Reads until the line is quiet. False when it is not so by `until`, or an EOT has come: the terminal's, perhaps.
bool SerialLink::settle(Line::Time until) {
  while (hear(times_.settleMs) >= 0) {
    if (line_.now() >= until) return false;
  }
  if (ended_) return false;
  heard_ = false;
  return true;
}

int SerialLink::hear(int timeoutMs) {
  const int byte = line_.readByte(timeoutMs);
  heard_ = heard_ || byte >= 0;
  ended_ = ended_ || byte == tessolan::kEOT;
  return byte;
}

// The next byte; -1 at `until`, or after `timeoutMs` of silence.
int SerialLink::hearUntil(Line::Time until, int timeoutMs) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - line_.now()).count();
  return left <= 0 ? -1 : hear(static_cast<int>(std::min<std::int64_t>(left, timeoutMs)));
}

}  // namespace jxpush
