// A receiver on a pseudo-terminal with a recording System, and the host's end in the test's hand.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/pty_pair.h"
#include "tests/unit/serial/open_receiver.h"

// Literal bytes, zero bytes among them.
template <std::size_t Size>
std::string bytes(const char (&literal)[Size]) {
  return std::string(literal, Size - 1);
}

// The two bytes of the check value of `covered`.
std::string checkValue(const std::string& covered);

// Records, whole and right, from STX to the check value.
std::string textRecord(char letter, const std::string& text);
std::string openRecord(const std::string& name);  // 39 blanks lead it
std::string signalRecord(char letter);
std::string dataRecord(std::uint32_t offset, const std::string& data);
// `record` with its last byte changed.
std::string damaged(std::string record);

extern const std::string kParameterRecord;

// Where in a record a download can be: the bytes that bring it there.
struct State {
  std::string name;
  std::string bytes;
};
extern const std::vector<State> kStates;

// Of Calls::timeFactor: no wait comes to its end, though divided as well.
constexpr int kFar = 20 * 60;

// Sends `bytes`, and waits until the receiver has read every one of them.
void feed(const PtyPair& line, const std::string& bytes);

// Records each call as a line; refuses what it is told to refuse.
class RecordingSystem : public Tessolan::System {
 public:
  bool openFile(const char* name) override { return note("open " + std::string(name)); }
  bool writeBlock(std::uint32_t offset, const unsigned char* data, std::uint32_t length) override;
  bool closeFile() override { return note("close"); }
  bool recordR(const char* text) override { return note("R " + std::string(text)); }
  bool showMessage(const char* text) override { return note("M " + std::string(text)); }
  bool recordS() override { return note("S"); }
  bool recordU() override { return note("U"); }

  std::vector<std::string> calls() const;
  std::string content() const;

  std::string refuse;  // the first word of what is refused; set before the download begins
  // Runs in each call from now on, on the receiving thread.
  void onCall(std::function<void()> hook);

 private:
  bool note(const std::string& call);
  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
  std::string content_;
  std::function<void()> hook_;
};

// The descriptors that this process has open, and always the same few more.
int openFiles();

// Runs `begin`, which starts a receive(), and returns when that has opened and flushed its line; fails the test after
// 20 s.
void untilReady(const std::function<void()>& begin);

// One receive() on a thread of its own.
class Download {
 public:
  // Begins at once on a line of its own, or on the device `path`.
  explicit Download(const std::string& refuse = "", const std::string& path = "");
  Download(const Download&) = delete;
  Download& operator=(const Download&) = delete;
  ~Download();

  // Sends, and returns what the terminal answers to it, `answer` bytes.
  std::string exchange(const std::string& record, std::size_t answer = 1);
  void feed(const std::string& bytes) const { ::feed(line, bytes); }
  // Waits for the end, and returns the result; 99 where receive() threw.
  int result();

  PtyPair line;
  RecordingSystem system;
  OpenReceiver receiver;

 private:
  int result_ = 0;
  std::thread thread_;
};
