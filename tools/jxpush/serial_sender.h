// The host's side of the Tessolan download protocol.
//
// Answers on the line are single bytes without a check value or a number, so that a lost or invented one would shift
// every later answer by one record. The sender therefore asks for the parameter record whenever an answer was not a
// plain ACK, and after every group of data records: the terminal answers in order, so that what comes before the
// parameter record tells what happened, and nothing old is left behind it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/jxpush/byte_port.h"
#include "tools/jxpush/target.h"

namespace jxpush {

// Waits in milliseconds. The terminal drops a record after 1000 ms of silence; enquiry and answer wait longer than
// that.
struct SerialTimes {
  int connectMs = 1000;  // between enquiries before the first contact
  int answerMs = 4000;   // for the answer to a record
  int enquiryMs = 1600;  // for the answer to an enquiry
  int gapMs = 300;       // within an answer
  int settleMs = 50;     // of silence, until a line with surplus bytes counts as quiet
  int messageMs = 2000;  // between messages to the operator
};

class SerialSender {
 public:
  // All three outlive the sender. It counts the records in `outcome`.
  SerialSender(BytePort& port, Observer& observer, Outcome& outcome, const SerialTimes& times = SerialTimes());

  // Sends `files`. Throws Problem: kGaveUp, kRefused, kInterrupted, kInput; whenever the terminal can still be reached
  // it has then been told to drop the download, so that it installs nothing. Blocks; waits for the terminal at most
  // `waitSeconds`.
  void send(const std::vector<InputFile>& files, int waitSeconds);

 private:
  using Clock = std::chrono::steady_clock;
  // What became of a record. Lost: the terminal is in step again, but whether it took the record is not known.
  enum class Answer { Taken, Refused, Lost };
  // Whether a record goes out for the first time.
  enum class Round { First, Again };

  void connect(int waitSeconds);
  void sendFile(const InputFile& file, std::size_t number, std::size_t count);
  void open(const std::string& name);
  void sendContent(const InputFile& file);
  void sendGroup(const InputFile& file, std::uint64_t from, std::uint64_t to, Round round);
  void closeFile();
  void finish();
  bool readEnd();
  void cancel() noexcept;
  void tryToCancel();
  void showMessage(std::uint64_t bytes, std::uint64_t size);

  void deliver(const std::string& record, Round round = Round::First);
  Answer exchange(const std::string& record, Round round);
  void dropSurplus();
  Answer judge(int byte);
  std::optional<std::string> enquire(int attempts, int timeoutMs);
  bool ask(int attempts, int timeoutMs, std::string& before);
  bool readParameters(int timeoutMs, std::string& before);
  bool inStep();
  void settle();
  void sendByte(unsigned char byte);
  void count(Round round);

  BytePort& port_;
  Observer& observer_;
  Outcome& outcome_;
  const SerialTimes times_;
  bool connected_ = false;
  bool doubt_ = false;  // an answer was made up since both ends were last seen in step
  std::size_t largestData_ = 0;
  std::string messageHead_;
  std::uint64_t shownPercent_ = 0;
  Clock::time_point lastMessage_;
};

}  // namespace jxpush
