#include <climits>
#include <new>

#include "cloudproxy/cloud_proxy_menu.h"
#include "tests/unit/cloudproxy/fixture.h"

namespace {

constexpr const char* kInfo =
    R"({"proxy":{"result":"success","version":"2.7.1","device_type":"prod","auth_ex_support":1}})";
constexpr const char* kCannotRead =
    "<span style='color:#f00'><b>Error:</b></span><br>Cannot read information.<br>Cloudproxy not running?";

class MenuTest : public CloudProxyTest {
 protected:
  // Runs the menu with these results of its page, the last of which leaves it.
  void run(std::initializer_list<int> results) {
    for (const int result : results) gui.answer("cloudproxy.html", result);
    runCloudProxyMenu();
  }
};

TEST_F(MenuTest, Menu_HasNoVariablesAndEndsWhenLeft) {
  inOwnProcess([this] {
    run({-1});
    EXPECT_EQ(gui.shownNames(), Texts{"cloudproxy.html"});
    EXPECT_EQ(varsOf(0), Vars{});
    EXPECT_EQ(ipc.calls(), Texts{});
  });
}

TEST_F(MenuTest, AnyOtherResult_ShowsTheMenuAgain) {
  inOwnProcess([this] {
    run({0, 4, -2, INT_MIN, INT_MAX, -1});
    EXPECT_EQ(gui.shownNames(), Texts(6, "cloudproxy.html"));
    EXPECT_EQ(ipc.calls(), Texts{});
  });
}

TEST_F(MenuTest, Menu_HasNewVariablesEachTime) {
  inOwnProcess([this] {
    gui.answer("cloudproxy.html", [](Vars& vars) {
      vars["left"] = "over";
      return 0;
    });
    run({-1});
    EXPECT_EQ(varsOf(1), Vars{});
  });
}

TEST_F(MenuTest, Information_ShowsWhatTheProxyTellsOnce) {
  inOwnProcess([this] {
    answer("info", kInfo);
    gui.answer("prx-info.html", 5);
    run({1, -1});
    EXPECT_EQ(gui.shownNames(), (Texts{"cloudproxy.html", "prx-info.html", "cloudproxy.html"}));
    EXPECT_EQ(varsOf(1), (Vars{{"version", "2.7.1"}, {"auth_ex_support", "1"}, {"device_type", "prod"}}));
  });
}

TEST_F(MenuTest, SecondInformation_IsTheFirstEvenWithoutTheProxy) {
  inOwnProcess([this] {
    answer("info", R"({"proxy":{"result":"success","version":"1","device_type":"dev","auth_ex_support":0}})");
    run({1, 1, -1});
    EXPECT_EQ(ipc.sent().size(), 1U);
    EXPECT_EQ(varsOf(3), (Vars{{"version", "1"}, {"auth_ex_support", "0"}, {"device_type", "dev"}}));
    EXPECT_EQ(varsOf(1), varsOf(3));
  });
}

TEST_F(MenuTest, EntryThatEndsByAnException_IsToldAndLeadsBackToThisMenu) {
  inOwnProcess([this] {
    const auto outOfMemory = [](Vars&) -> int { throw std::bad_alloc(); };
    gui.answer("prx-info.html", outOfMemory);
    gui.answer("prx-settings.html", outOfMemory);
    gui.onAsync([](const ShownPage&) { throw std::bad_alloc(); });
    answer("info", kInfo);
    for (int i = 0; i < 2; ++i) {
      answer("readconfig",
             R"({"proxy":{"result":"success","cloud_env":"e","cloud_hostname":"h","cloud_env_list2":[]}})");
    }
    run({1, 2, 3, -1});
    EXPECT_EQ(gui.shownNames(),
              (Texts{"cloudproxy.html", "prx-info.html", "result.html", "cloudproxy.html", "prx-settings.html",
                     "result.html", "cloudproxy.html", "wait.html", "result.html", "cloudproxy.html"}));
    for (const std::size_t result : {2U, 5U, 8U}) {
      EXPECT_EQ(
          varsOf(result),
          (Vars{{"text", "<span style='color:#f00'><b>Error:</b></span><br>Cannot continue.<br>Out of memory?"}}));
    }
  });
}

TEST_F(MenuTest, NoInformation_ShowsTheErrorAndTriesAgainNextTime) {
  inOwnProcess([this] {
    gui.answer("cloudproxy.html", 1);
    gui.answer("result.html", [this](Vars&) {
      answer("info", kInfo);
      return 7;
    });
    run({1, -1});
    EXPECT_EQ(gui.shownNames(),
              (Texts{"cloudproxy.html", "result.html", "cloudproxy.html", "prx-info.html", "cloudproxy.html"}));
    EXPECT_EQ(varsOf(1), (Vars{{"text", kCannotRead}}));
  });
}

}  // namespace
