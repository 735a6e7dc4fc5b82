// Where files are sent: one class for each kind of terminal connection.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/jxpush/common/input_file.h"
#include "tools/jxpush/common/log_line.h"

namespace jxpush {

// Told how far the sending is; on the sending thread. Must not throw.
class Observer {
 public:
  Observer() = default;
  Observer(const Observer&) = delete;
  Observer& operator=(const Observer&) = delete;
  virtual ~Observer() = default;

  // The target is being asked whether it is there; `text` says for what it waits.
  virtual void waiting(const std::string& text) = 0;
  // `file` begins; the bytes of the files before it are all acknowledged.
  virtual void fileBegins(const InputFile& file) = 0;
  // `bytes` of the present file are acknowledged.
  virtual void acknowledged(std::uint64_t bytes) = 0;
  // How many were sent once more so far, in the target's own unit: each time counts.
  virtual void sentAgain(std::uint64_t records) = 0;
  // Everything has been sent, and the terminal installs it.
  virtual void installing() {}
};

// What a sending took.
struct Outcome {
  std::uint64_t records = 0;  // sent in the target's own unit, those sent again among them; 0: it has none
  std::uint64_t sentAgain = 0;
  bool onScreenAlone = false;  // the target does not say what it installed, but shows it to its operator
  std::vector<LogLine> log;    // the installer's log, where the target tells it
};

class Target {
 public:
  Target() = default;
  Target(const Target&) = delete;
  Target& operator=(const Target&) = delete;
  virtual ~Target() = default;

  // Throws Problem when sending cannot work for a reason that can be seen without touching the terminal.
  virtual void check(const std::vector<InputFile>& files) = 0;
  // Sends all of `files` in order, or throws Problem: then the terminal has been kept from installing them, or the
  // message says what may have happened. `outcome`, empty before, is kept up to date, so that it also tells what a
  // sending took that failed. Blocks.
  virtual void send(const std::vector<InputFile>& files, Observer& observer, Outcome& outcome) = 0;
};

// How targets are made.
struct TargetOptions {
  int waitSeconds = 60;      // how long to wait for the terminal's first answer
  bool waitForDoor = false;  // over HTTP too: tries to connect again within that time while nobody listens
  int silenceSeconds = 900;  // how long an HTTP terminal may stay silent while it takes and installs the files
  int stopFd = -1;           // readable once the user has interrupted; -1: never
};

}  // namespace jxpush
