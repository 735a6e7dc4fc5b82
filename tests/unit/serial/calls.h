// The system calls of the receiver, under a test's control. Without a hook a call goes through.
#pragma once

#include <poll.h>
#include <sys/types.h>
#include <termios.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

struct Calls {
  static Calls& instance();
  // No hooks, true time, nothing recorded.
  void reset();

  std::function<int(pollfd*, nfds_t, int)> onPoll;
  std::function<ssize_t(int, void*, size_t)> onRead;
  std::function<ssize_t(int, const void*, size_t)> onWrite;
  std::function<std::string(const std::string&)> onOpen;  // the path to open instead
  std::vector<int> openFlags;                             // of the receiving thread's opens, in order
  // What was asked of the line, in order: "flush", "set".
  bool recordSettings = false;
  std::vector<std::string> settingCalls;
  termios settings{};
  // Of the receiving thread: every call that sets or flushes a line fails, and does nothing.
  std::atomic<bool> refuseSettings{false};
  // Of the receiving threads: how often they flushed a line, which each receive() does twice and is ready then; and how
  // many bytes they have read.
  std::atomic<int> flushes{0};
  std::atomic<std::size_t> bytesRead{0};
  // To be called by a thread before it receives.
  static void thisThreadReceives();
  // Every wait is so many times shorter than it was asked for, and so many times longer.
  std::atomic<int> timeDivisor{1};
  std::atomic<int> timeFactor{1};
};

// Resets before and after a test.
class CallsReset {
 public:
  CallsReset() { Calls::instance().reset(); }
  CallsReset(const CallsReset&) = delete;
  CallsReset& operator=(const CallsReset&) = delete;
  ~CallsReset() { Calls::instance().reset(); }
};
