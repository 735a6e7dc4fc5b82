#include "platform/linux/zorguiprt/screen.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <string>
#include <vector>

#include "base/ignore.h"
#include "tests/unit/platform/zorguiprt/listener.h"

using jxplatform::PageResult;
using jxplatform::Screen;
using std::chrono::milliseconds;

namespace {

constexpr milliseconds kLong{60'000};

PageResult resultOf(int value) { return {value, {}}; }

class ScreenTest : public testing::Test {
 protected:
  // Shows a synchronous page on another thread; its id is `lastId` when this returns.
  std::future<std::optional<PageResult>> showAndWait(zorgui::UICallback callback = nullptr, void* data = nullptr) {
    auto page = screen.showSynchronous({"sync.html", {}, ""});
    return std::async(std::launch::async,
                      [this, page, callback, data] { return screen.waitForResult(page, callback, data); });
  }

  void showAsync(Listener* listener) {
    screen.showAsynchronous({"async.html", {}, ""}, listener == nullptr ? nullptr : Listener::report, listener);
  }

  std::atomic<std::uint64_t> lastId{100};
  // One that returns by itself does so at once.
  Screen screen{[this] { return ++lastId; }, milliseconds(0)};
};

}  // namespace

TEST_F(ScreenTest, NoPageYet_NewestIsNullAndPostIsGone) {
  EXPECT_EQ(screen.newest(0, milliseconds(0)), nullptr);
  EXPECT_FALSE(screen.post(0, resultOf(1)));
  EXPECT_FALSE(screen.post(1, resultOf(1)));
}

TEST_F(ScreenTest, PageOnScreen_IsNewestForThoseBelowItsId) {
  showAsync(nullptr);
  const std::string json = R"({"id":101,"page":"async.html","sync":false,"vars":{},"html":""})";
  EXPECT_EQ(*screen.newest(0, milliseconds(0)), json);
  EXPECT_EQ(*screen.newest(100, kLong), json);
  EXPECT_EQ(screen.newest(101, milliseconds(0)), nullptr);
  EXPECT_EQ(screen.newest(102, milliseconds(1)), nullptr);
}

TEST_F(ScreenTest, WaitingRequest_GetsTheNextPage) {
  auto waiting = std::async(std::launch::async, [this] { return screen.newest(0, kLong); });
  showAsync(nullptr);
  ASSERT_NE(waiting.get(), nullptr);
}

TEST_F(ScreenTest, SynchronousPage_ReturnsThePostedResultOnce) {
  auto returned = showAndWait();
  EXPECT_FALSE(screen.post(100, resultOf(1)));
  EXPECT_FALSE(screen.post(102, resultOf(1)));
  EXPECT_TRUE(screen.post(101, {3, {{"a", "b"}, {"c", std::nullopt}}}));
  EXPECT_FALSE(screen.post(101, resultOf(4)));
  const auto result = returned.get();
  ASSERT_TRUE(result);
  EXPECT_EQ(result->result, 3);
  EXPECT_EQ(result->vars.size(), 2U);
  EXPECT_NE(screen.newest(0, milliseconds(0)), nullptr) << "a page that is done stays on screen";
  EXPECT_FALSE(screen.post(101, resultOf(5)));
}

TEST_F(ScreenTest, PageThatReturnsByItself_DoesSoWithoutABrowser) {
  const auto page = screen.showSynchronous({"auto.html", {}, "", 7});
  const auto result = screen.waitForResult(page, nullptr, nullptr);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->result, 7);
  EXPECT_TRUE(result->vars.empty());
  EXPECT_FALSE(screen.post(101, resultOf(1)));
  EXPECT_NE(screen.newest(0, milliseconds(0)), nullptr) << "it stays on screen";
  const zorgui::UICallback always = [](void*) { return true; };
  const auto asked = screen.waitForResult(screen.showSynchronous({"auto.html", {}, "", -1}), always, nullptr);
  ASSERT_TRUE(asked);
  EXPECT_EQ(asked->result, -1);
}

TEST_F(ScreenTest, PageThatReturnsByItself_TakesABrowsersResultBefore) {
  Screen patient{[this] { return ++lastId; }, kLong};
  const auto page = patient.showSynchronous({"auto.html", {}, "", 7});
  EXPECT_TRUE(patient.post(101, resultOf(2)));
  EXPECT_EQ(patient.waitForResult(page, nullptr, nullptr)->result, 2);
}

TEST_F(ScreenTest, ManyPostsAtOnce_OneIsTaken) {
  for (int round = 0; round < 50; ++round) {
    auto returned = showAndWait();
    const std::uint64_t id = lastId;
    std::vector<std::future<bool>> posts;
    for (int value = 0; value < 4; ++value) {
      posts.push_back(std::async(std::launch::async, [this, id, value] { return screen.post(id, resultOf(value)); }));
    }
    int taken = 0;
    int winner = -1;
    for (int value = 0; value < 4; ++value) {
      if (posts[static_cast<std::size_t>(value)].get()) {
        ++taken;
        winner = value;
      }
    }
    EXPECT_EQ(taken, 1);
    EXPECT_EQ(returned.get()->result, winner);
  }
}

TEST_F(ScreenTest, ReplacedSynchronousPage_HasNoResult) {
  auto first = showAndWait();
  auto second = showAndWait();
  EXPECT_FALSE(first.get());
  EXPECT_FALSE(screen.post(101, resultOf(1)));
  EXPECT_TRUE(screen.post(102, resultOf(1)));
  EXPECT_TRUE(second.get());
}

TEST_F(ScreenTest, LaterPageRequested_EndsTheOneOnScreen) {
  auto returned = showAndWait();
  screen.endPage();
  EXPECT_FALSE(returned.get());
  EXPECT_FALSE(screen.post(101, resultOf(1)));
  EXPECT_NE(screen.newest(0, milliseconds(0)), nullptr);
}

TEST_F(ScreenTest, SynchronousCallbackThatReturnsFalse_EndsThePage) {
  int asked = 0;
  const zorgui::UICallback third = [](void* count) { return ++*static_cast<int*>(count) < 3; };
  EXPECT_FALSE(showAndWait(third, &asked).get());
  EXPECT_EQ(asked, 3);
  EXPECT_FALSE(screen.post(101, resultOf(1)));
}

TEST_F(ScreenTest, SynchronousCallbackThatReturnsTrue_LetsThePageGoOn) {
  std::atomic<int> asked{0};
  const zorgui::UICallback always = [](void* count) { return ++*static_cast<std::atomic<int>*>(count) > 0; };
  auto returned = showAndWait(always, &asked);
  while (asked < 2) std::this_thread::yield();
  EXPECT_TRUE(screen.post(101, resultOf(7)));
  EXPECT_EQ(returned.get()->result, 7);
}

TEST_F(ScreenTest, AsynchronousPage_ReportsResultsUntilItIsLeft) {
  Listener listener;
  showAsync(&listener);
  EXPECT_TRUE(screen.post(101, resultOf(0)));
  EXPECT_TRUE(screen.post(101, resultOf(1)));
  EXPECT_TRUE(screen.post(101, resultOf(-1)));
  EXPECT_FALSE(screen.post(101, resultOf(-1)));
  EXPECT_FALSE(screen.post(101, resultOf(0)));
  EXPECT_EQ(listener.waitForResults(3), (std::vector<int>{0, 1, -1}));
}

TEST_F(ScreenTest, AsynchronousPageWithoutCallback_TakesResults) {
  showAsync(nullptr);
  EXPECT_TRUE(screen.post(101, resultOf(1)));
  EXPECT_TRUE(screen.post(101, resultOf(-1)));
  EXPECT_FALSE(screen.post(101, resultOf(1)));
}

TEST_F(ScreenTest, Callbacks_RunOneAtATimeOnOneThread) {
  Listener listener;
  listener.hold(true);
  showAsync(&listener);
  std::vector<std::future<bool>> posts;
  for (int i = 0; i < 3; ++i) {
    posts.push_back(std::async(std::launch::async, [this] { return screen.post(101, resultOf(1)); }));
  }
  listener.waitForBegun(1);
  EXPECT_EQ(listener.begun, 1);
  listener.hold(false);
  for (auto& post : posts) EXPECT_TRUE(post.get());
  EXPECT_EQ(listener.waitForResults(3).size(), 3U);
}

TEST_F(ScreenTest, NextPage_WaitsForTheCallbackThatRuns) {
  Listener listener;
  listener.hold(true);
  showAsync(&listener);
  EXPECT_TRUE(screen.post(101, resultOf(-1)));
  std::atomic<bool> shown{false};
  auto next = std::async(std::launch::async, [&] {
    showAsync(nullptr);
    shown = true;
  });
  listener.waitForBegun(1);
  EXPECT_FALSE(shown);
  listener.hold(false);
  next.get();
  EXPECT_EQ(listener.results.size(), 1U) << "the callback has ended when the page is up";
}

TEST_F(ScreenTest, ReplacedPage_DropsWhatWasNotYetReported) {
  Listener listener;
  listener.hold(true);
  showAsync(&listener);
  EXPECT_TRUE(screen.post(101, resultOf(0)));
  auto second = std::async(std::launch::async, [this] { return screen.post(101, resultOf(1)); });
  auto next = std::async(std::launch::async, [this] { screen.endPage(); });
  EXPECT_FALSE(second.get()) << "either it found the page ended, or it was dropped";
  listener.hold(false);
  next.get();
  EXPECT_EQ(listener.results, (std::vector<int>{0}));
}

TEST_F(ScreenTest, CallbackThatShowsAPage_DoesNotWaitForItself) {
  struct Chain {
    Screen* screen;
    std::promise<std::optional<PageResult>> returned;
  } chain{&screen, {}};
  screen.showAsynchronous(
      {"async.html", {}, ""},
      [](void* data, int, const zorgui::UICallbackData*) {
        auto* const self = static_cast<Chain*>(data);
        self->screen->endPage();
        const auto page = self->screen->showSynchronous({"inner.html", {}, ""});
        self->returned.set_value(self->screen->waitForResult(page, nullptr, nullptr));
      },
      &chain);
  EXPECT_TRUE(screen.post(101, resultOf(1)));
  EXPECT_NE(screen.newest(101, kLong), nullptr);
  EXPECT_TRUE(screen.post(102, resultOf(9)));
  EXPECT_EQ(chain.returned.get_future().get()->result, 9);
}

TEST_F(ScreenTest, PageThatReplacesACallbacksOwnPage_EndsBoth) {
  std::promise<bool> innerHadResult;
  struct Chain {
    Screen* screen;
    std::promise<bool>* innerHadResult;
  } chain{&screen, &innerHadResult};
  screen.showAsynchronous(
      {"async.html", {}, ""},
      [](void* data, int, const zorgui::UICallbackData*) {
        auto* const self = static_cast<Chain*>(data);
        const auto page = self->screen->showSynchronous({"inner.html", {}, ""});
        self->innerHadResult->set_value(self->screen->waitForResult(page, nullptr, nullptr).has_value());
      },
      &chain);
  EXPECT_TRUE(screen.post(101, resultOf(1)));
  showAsync(nullptr);  // returns only when the callback has ended
  EXPECT_FALSE(innerHadResult.get_future().get());
}

TEST_F(ScreenTest, PageThatCannotBeShown_ReportsThatItIsGivenUp) {
  Listener listener;
  screen.reportUnshown(Listener::report, &listener);
  EXPECT_EQ(listener.waitForResults(2), (std::vector<int>{1, -1}));
  screen.reportUnshown(nullptr, nullptr);
}

TEST_F(ScreenTest, PageThatStandsIn_ReportsThatItIsGivenUpWhenItIsLeft) {
  Listener listener;
  screen.showAsynchronous({"async.html", {}, "", {}, true}, Listener::report, &listener);
  EXPECT_TRUE(screen.post(101, resultOf(0)));
  EXPECT_TRUE(screen.post(101, resultOf(1)));
  EXPECT_EQ(listener.waitForResults(2), (std::vector<int>{0, 1}));
  EXPECT_TRUE(screen.post(101, resultOf(-1)));
  EXPECT_FALSE(screen.post(101, resultOf(-1)));
  EXPECT_EQ(listener.waitForResults(4), (std::vector<int>{0, 1, 1, -1}));
}

TEST_F(ScreenTest, PagesFromManyThreads_EachEndOnce) {
  std::atomic<int> ended{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, &ended] {
      for (int round = 0; round < 50; ++round) {
        base::ignore(screen.waitForResult(screen.showSynchronous({"sync.html", {}, ""}), nullptr, nullptr));
        ++ended;
      }
    });
  }
  // Whoever shows last is alone on screen and gets its result from here.
  while (ended < 200) {
    base::ignore(screen.post(lastId, resultOf(1)));
    std::this_thread::yield();
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(ended, 200);
}

TEST_F(ScreenTest, MoreWaitingRequestsThanAllowed_ReleaseTheOldest) {
  showAsync(nullptr);
  std::vector<std::future<Screen::Text>> waiting;
  for (std::size_t i = 0; i < Screen::kMostWaiting + 10; ++i) {
    waiting.push_back(std::async(std::launch::async, [this] { return screen.newest(101, kLong); }));
  }
  std::size_t released = 0;
  while (released < 10) {
    released = 0;
    for (auto& request : waiting) released += request.wait_for(milliseconds(1)) == std::future_status::ready;
  }
  showAsync(nullptr);
  std::size_t answered = 0;
  for (auto& request : waiting) answered += request.get() != nullptr;
  EXPECT_EQ(answered, Screen::kMostWaiting);
}

TEST_F(ScreenTest, Close_ReleasesEverybody) {
  auto returned = showAndWait();
  auto waiting = std::async(std::launch::async, [this] { return screen.newest(101, kLong); });
  screen.close();
  EXPECT_FALSE(returned.get());
  EXPECT_EQ(waiting.get(), nullptr);
  EXPECT_FALSE(screen.post(101, resultOf(1)));
  EXPECT_FALSE(screen.waitForResult(screen.showSynchronous({"late.html", {}, ""}), nullptr, nullptr));
  Listener listener;
  showAsync(&listener);
  EXPECT_FALSE(screen.post(lastId, resultOf(1)));
  screen.reportUnshown(Listener::report, &listener);
  EXPECT_EQ(listener.begun, 0);
}
