#include "tests/unit/cloudproxy/own_process.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

// The thread sanitizer has a second's sleep at the end of each process, in which threads may show what they do wrong.
// The fake's thread has nothing to do then. NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizer asks for this
// name
extern "C" const char* __tsan_default_options() { return "atexit_sleep_ms=0"; }

void inOwnProcess(const std::function<void()>& work) {
  std::fflush(nullptr);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    work();
    std::exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}
