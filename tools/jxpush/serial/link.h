// One record after the other to the terminal, and what became of each.
//
// Answers on the line are single bytes without a check value or a number, so that the line can make up, damage or
// swallow one. An enquiry therefore goes ahead of each record: the terminal answers in order, so that between two
// parameter records there must be one ACK and nothing else. Where there is something else, nobody can tell which record
// it belongs to, and both the one before and the one behind the enquiry are in doubt.
#pragma once

#include <cstddef>
#include <string>

#include "tools/jxpush/serial/line.h"

namespace jxpush {

// Waits in milliseconds. The terminal drops a record after 1000 ms of silence; enquiries are further apart than that,
// so that they cannot feed a record which it is still in.
struct SerialTimes {
  int connectMs = 1200;  // between enquiries before the first contact
  int overtimeMs = 900;  // how much longer than asked the first contact may be waited for
  int answerMs = 4000;   // for the answer to a record, and to the enquiry ahead of it
  int enquiryMs = 1600;  // for the answer to an enquiry that follows a fault
  int gapMs = 100;       // within an answer
  int settleMs = 50;     // of silence, until the line counts as quiet
  int noiseMs = 500;     // until a line that does not fall silent counts as noisy
};

class SerialLink {
 public:
  enum class Answer {
    kTaken,    // acknowledged; the next enquiry may still put it in doubt
    kUnknown,  // the terminal may have taken it or not
    kDoubted,  // likewise, and so is the record before it
  };

  // `line` outlives the link.
  explicit SerialLink(Line& line, const SerialTimes& times = SerialTimes()) : line_(line), times_(times) {}

  // Enquires until a terminal answers, for `waitSeconds` and at most a second more. Throws Problem(kGaveUp) when none
  // has.
  void connect(int waitSeconds);

  // Sends an enquiry and `record`; an empty one just looks whether the record before was taken. Whatever the answer,
  // both ends are in step when this returns. Throws Problem: kRefused when the terminal has ended the download instead,
  // kGaveUp when it does not answer or the line is too bad.
  Answer send(const std::string& record);
  // The same without the enquiry, when the record before is in no doubt.
  Answer sendAlone(const std::string& record);

  // Ends the download. False when the terminal has not confirmed it.
  bool finish();
  // Makes the terminal drop the download. False when it has not confirmed it.
  bool cancel();

  // The largest length of a data record that the terminal takes; 0 before connect().
  std::size_t largestData() const { return largestData_; }

 private:
  Answer readAnswer();
  bool awaitParameters(Line::Time until, int gapMs);
  bool awaitEnd();
  bool enquire();
  void resync();
  bool settle(Line::Time until);
  int hear(int timeoutMs);
  int hearUntil(Line::Time until, int timeoutMs);
  Line::Time after(int milliseconds) { return line_.now() + std::chrono::milliseconds(milliseconds); }
  void sendByte(unsigned char byte) { line_.write(&byte, 1); }

  Line& line_;
  const SerialTimes times_;
  std::size_t largestData_ = 0;
  bool clean_ = false;  // nothing came before the last parameter record
  bool heard_ = false;  // something has come since the line was last quiet
  bool ended_ = false;  // an EOT has come since the last parameter record
};

}  // namespace jxpush
