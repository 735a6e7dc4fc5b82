#include "tools/jxpush/common/stop_signals.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

using namespace jxpush;

namespace {

// Whether a signal would be ignored, end the program, or be caught; `-`, `X` or `c`, of SIGINT, SIGTERM and SIGHUP.
std::string fates() {
  std::string text;
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action {};
    sigaction(number, nullptr, &action);
    text += action.sa_handler == SIG_IGN ? '-' : action.sa_handler == SIG_DFL ? 'X' : 'c';
  }
  return text;
}

// In a process of its own: catches the signals, raises one, and ends with what was seen.
[[noreturn]] void catchAndRaise(int number) {
  const int stopFd = catchStopSignals();
  std::string seen = fates() + (stopAsked(stopFd) ? "!" : "");
  std::raise(number);
  seen += " " + fates() + (stopAsked(stopFd) ? "!" : "");
  std::fputs(seen.c_str(), stderr);
  std::exit(0);
}

}  // namespace

TEST(StopSignals, FirstSignal_IsAskedForAndTheSecondEndsTheProgram) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    EXPECT_EXIT(catchAndRaise(number), testing::ExitedWithCode(0), "^ccc XXX!$");
  }
}

TEST(StopSignals, IgnoredHangUp_StaysIgnored) {
  const auto ignored = [](int number) {
    std::signal(SIGHUP, SIG_IGN);
    catchAndRaise(number);
  };
  EXPECT_EXIT(ignored(SIGHUP), testing::ExitedWithCode(0), "^cc- cc-$");
  EXPECT_EXIT(ignored(SIGINT), testing::ExitedWithCode(0), "^cc- XX-!$");
}
