// A terminal at the far end of a line, without a line: answers each write at once, as told.
#pragma once

#include <deque>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "tools/jxpush/serial/line.h"

class ScriptedTerminal : public jxpush::Line {
 public:
  // What became of the `nth` record of a letter (counted from 1) and what the host gets for it, instead of taking it.
  struct Fate {
    bool taken;          // the terminal acted on it
    std::string answer;  // what arrives at the host
  };
  // Consulted for each record; null: it is taken and acknowledged. Its letter: 'E' an enquiry, '.' the end.
  std::function<const Fate*(char letter, int nth)> fate;
  // From when on the line takes bytes, as a USB gadget does once the terminal has opened its end.
  Time opensAt{};
  // What the user's interrupt waits for: true raises it in the next readByte.
  std::function<bool()> interrupted;

  // A new terminal without a script.
  void reset();

  // Whether the line is gone when the next byte is written or read; null: never.
  std::function<bool()> hungUp;

  void write(const void* data, std::size_t size) override;
  void offer(unsigned char byte) override;
  int readByte(int timeoutMs) override;
  Time now() override { return now_; }
  void ignoreInterrupts() override { interrupted = nullptr; }

  // The files as the terminal stored them, the letters of what it received, its end.
  const std::vector<std::string>& files() const { return state_.files; }
  const std::string& letters() const { return state_.letters; }
  // The records among it, neither enquiries nor ends, and how many of them it had received before.
  std::size_t recordCount() const { return state_.records.size(); }
  std::size_t repeatCount() const {
    return state_.records.size() - std::set<std::string>(state_.records.begin(), state_.records.end()).size();
  }
  const std::vector<std::string>& messages() const { return state_.messages; }
  bool ended() const { return state_.ended; }
  int result() const { return state_.result; }

 private:
  void failWhenHungUp() const;
  void receive(const std::string& bytes);
  void answerTo(char letter, const std::string& record);
  std::string act(char letter, const std::string& record);
  std::string end(int result);

  struct State {
    std::deque<char> input;
    std::vector<std::string> files;
    std::vector<std::string> messages;
    std::string letters;
    std::vector<std::string> records;
    bool open = false;
    bool ended = false;
    int result = 0;
    int counts[256] = {};
  };
  State state_;
  Time now_{std::chrono::hours(1)};  // moves on with each silence
};
