// The screen where the system has no thread or no memory left.
#include <gtest/gtest.h>

#include <new>
#include <system_error>
#include <vector>

#include "platform/linux/zorguiprt/screen.h"
#include "tests/support/no_memory.h"
#include "tests/unit/platform/zorguiprt/listener.h"
#include "tests/unit/platform/zorguiprt/no_threads.h"

using jxplatform::Screen;
using std::chrono::milliseconds;

namespace {

constexpr int kMoreThanAnyNeeds = 300;

class ScreenShortageTest : public testing::Test {
 protected:
  void show(zorgui::UIAsyncCallback callback) {
    screen.showAsynchronous({"async.html", {}, ""}, callback, callback == nullptr ? nullptr : &listener);
  }

  bool post(int result) { return screen.post(lastId, {result, {}}); }

  // The number of allocations after which `work` needs no more; the ones before made it throw.
  template <typename Work>
  int failuresUntilSuccess(const Work& work) {
    for (int count = 0; count < kMoreThanAnyNeeds; ++count) {
      try {
        noMemory::after(count);
        work();
        noMemory::after(-1);
        return count;
      } catch (const std::bad_alloc&) {
        noMemory::after(-1);
      }
    }
    return -1;
  }

  std::uint64_t lastId = 100;
  Listener listener;
  Screen screen{[this] { return ++lastId; }};
};

}  // namespace

TEST_F(ScreenShortageTest, NoThreadForTheCallback_ThePageIsNotShown) {
  {
    const NoThreads shortage;
    EXPECT_THROW(show(Listener::report), std::system_error);
  }
  EXPECT_EQ(screen.newest(0, milliseconds(0)), nullptr);
  show(Listener::report);
  EXPECT_TRUE(post(-1));
  EXPECT_EQ(listener.waitForResults(1), (std::vector<int>{-1}));
}

TEST_F(ScreenShortageTest, NoThreadAfterThePageIsShown_ItsResultsAreReported) {
  show(Listener::report);
  const NoThreads shortage;
  EXPECT_TRUE(post(1));
  EXPECT_TRUE(post(-1));
  EXPECT_EQ(listener.waitForResults(2), (std::vector<int>{1, -1}));
}

TEST_F(ScreenShortageTest, PageWithoutCallback_NeedsNoThread) {
  const NoThreads shortage;
  show(nullptr);
  EXPECT_TRUE(post(-1));
}

TEST_F(ScreenShortageTest, ResultThatThereIsNoMemoryFor_CanBePostedAgain) {
  show(Listener::report);
  EXPECT_GT(
      failuresUntilSuccess([this] { EXPECT_TRUE(post(-1)) << "the page was left by a result nobody was told of"; }), 0);
  EXPECT_FALSE(post(-1));
  EXPECT_EQ(listener.waitForResults(1), (std::vector<int>{-1}));
}

TEST_F(ScreenShortageTest, PageThatThereIsNoMemoryFor_IsNotShown) {
  const int failures = failuresUntilSuccess([this] {
    EXPECT_EQ(screen.newest(0, milliseconds(0)), nullptr);
    show(Listener::report);
  });
  EXPECT_GT(failures, 3);
  EXPECT_TRUE(post(-1));
  EXPECT_EQ(listener.waitForResults(1), (std::vector<int>{-1}));
}

TEST_F(ScreenShortageTest, NoThreadToReportAnUnshownPage_IsReportedByTheCallItself) {
  {
    const NoThreads shortage;
    screen.reportUnshown(Listener::report, &listener);
  }
  EXPECT_EQ(listener.results, (std::vector<int>{1, -1}));
  EXPECT_EQ(listener.thread, std::this_thread::get_id());
  screen.reportUnshown(Listener::report, &listener);
  EXPECT_EQ(listener.waitForResults(4), (std::vector<int>{1, -1, 1, -1}));
  EXPECT_NE(listener.thread, std::this_thread::get_id());
}

TEST_F(ScreenShortageTest, NoMemoryToReportAnUnshownPage_IsReportedOnceAllTheSame) {
  listener.results.reserve(std::size_t{2} * kMoreThanAnyNeeds);
  std::size_t reports = 0;
  for (bool met = true; met && reports < kMoreThanAnyNeeds;) {
    noMemory::after(static_cast<int>(reports));
    screen.reportUnshown(Listener::report, &listener);
    met = noMemory::met();
    noMemory::after(-1);
    ++reports;
    EXPECT_EQ(listener.waitForResults(2 * reports).size(), 2 * reports);
  }
  EXPECT_GT(reports, 2U);
  EXPECT_EQ(listener.begun, static_cast<int>(2 * reports));
}

TEST_F(ScreenShortageTest, ClosedScreen_BeginsNoThread) {
  screen.close();
  const NoThreads shortage;
  show(Listener::report);
  screen.reportUnshown(Listener::report, &listener);
  EXPECT_FALSE(post(-1));
  EXPECT_EQ(listener.begun, 0);
}
