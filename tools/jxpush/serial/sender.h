// The host's side of the Tessolan download protocol: files as records, in order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/jxpush/common/target.h"
#include "tools/jxpush/serial/line.h"
#include "tools/jxpush/serial/link.h"

namespace jxpush {

class SerialSender {
 public:
  // All three outlive the sender. It counts the records in `outcome`.
  SerialSender(Line& line, Observer& observer, Outcome& outcome, const SerialTimes& times = SerialTimes());

  // Sends `files`. Throws Problem: kGaveUp, kRefused, kInterrupted, kInput; whenever the terminal can still be reached
  // it has then been told to drop the download, so that it installs nothing. Blocks; waits for the terminal at most
  // `waitSeconds` and a second.
  void send(const std::vector<InputFile>& files, int waitSeconds);

 private:
  using Answer = SerialLink::Answer;

  void sendFile(const InputFile& file, std::size_t number, std::size_t count);
  void open(const std::string& name);
  void sendContent(const InputFile& file);
  void closeFile();
  void finish();
  bool cancel() noexcept;
  void showMessage(std::uint64_t bytes, std::uint64_t size);

  void deliver(const std::string& record);
  Answer exchange(const std::string& record, bool again);
  void count(bool again);

  Line& line_;
  SerialLink link_;
  Observer& observer_;
  Outcome& outcome_;
  bool connected_ = false;
  std::string last_;       // what to send once more when the last record turns out to be in doubt
  std::string shownName_;  // to the operator
  std::string shownPlace_;
  std::optional<std::uint64_t> shownPercent_;
  Line::Time lastMessage_;
};

}  // namespace jxpush
