#include "shell/menu.h"

#include <climits>
#include <new>

#include "tests/unit/shell/fixture.h"

namespace {

class MenuTest : public ShellTest {
 protected:
  MenuTest() {
    activities.information = [this] { ran.emplace_back("information"); };
    activities.logLevel = [this] { ran.emplace_back("log level"); };
    activities.cloudProxy = [this] { ran.emplace_back("cloud proxy"); };
    activities.httpDownload = [this] { ran.emplace_back("http"); };
    activities.serialDownload = [this](int port) { ran.push_back("serial " + std::to_string(port)); };
  }

  // Runs the main menu with these results of its page, the last of which leaves it.
  void runMain(std::initializer_list<int> results) {
    for (const int result : results) gui.answer("mainmenu.html", result);
    runMainMenu(offered, activities);
  }

  void runDownload(std::initializer_list<int> results) {
    for (const int result : results) gui.answer("download.html", result);
    runDownloadMenu(activities);
  }

  ProxyEntry offered = ProxyEntry::kNone;
  Activities activities;
  Names ran;
};

TEST_F(MenuTest, MainMenu_OffersOneEntryOfTheProxyAtMost) {
  for (const ProxyEntry entry : {ProxyEntry::kNone, ProxyEntry::kLogLevel, ProxyEntry::kCloudProxy}) {
    offered = entry;
    runMain({-1});
  }
  const auto shown = gui.shown();
  ASSERT_EQ(gui.shownNames(), Names(3, "mainmenu.html"));
  EXPECT_TRUE(shown[0].synchronous);
  EXPECT_EQ(shown[0].vars, (std::map<std::string, std::string>{{"show_settings", "0"}, {"show_cloudproxy", "0"}}));
  EXPECT_EQ(shown[1].vars, (std::map<std::string, std::string>{{"show_settings", "1"}, {"show_cloudproxy", "0"}}));
  EXPECT_EQ(shown[2].vars, (std::map<std::string, std::string>{{"show_settings", "0"}, {"show_cloudproxy", "1"}}));
}

TEST_F(MenuTest, MainMenu_HasNewVariablesEachTime) {
  offered = ProxyEntry::kLogLevel;
  gui.answer("mainmenu.html", [](auto& vars) {
    vars["show_settings"] = "changed";
    vars["more"] = "x";
    return 2;
  });
  runMain({-1});
  const auto shown = gui.shown();
  ASSERT_EQ(shown.size(), 2U);
  EXPECT_EQ(shown[1].vars, (std::map<std::string, std::string>{{"show_settings", "1"}, {"show_cloudproxy", "0"}}));
}

TEST_F(MenuTest, MainMenuEntries_RunTheirActivityAndReturn) {
  runMain({2, 3, 4, 2, -1});
  EXPECT_EQ(ran, (Names{"information", "log level", "cloud proxy", "information"}));
  EXPECT_EQ(gui.shown().size(), 5U);
}

TEST_F(MenuTest, MainMenuEntry1_ShowsTheDownloadMenuAndReturns) {
  gui.answer("download.html", -1);
  runMain({1, -1});
  EXPECT_EQ(gui.shownNames(), (Names{"mainmenu.html", "download.html", "mainmenu.html"}));
  EXPECT_EQ(ran, Names());
}

TEST_F(MenuTest, MainMenuResultsAbove4_ShowItAgain) {
  runMain({5, 7, INT_MAX, -1});
  EXPECT_EQ(gui.shown().size(), 4U);
  EXPECT_EQ(ran, Names());
}

TEST_F(MenuTest, MainMenuResultsBelow1_LeaveWithTheNotification) {
  for (const int result : {-1, 0, -2, INT_MIN}) {
    gui.reset();
    controller.reset();
    runMain({result});
    EXPECT_EQ(gui.shown().size(), 1U) << result;
    EXPECT_EQ(controller.commands(), (Names{"libmac_show_desktop"})) << result;
  }
  EXPECT_EQ(ran, Names());
}

TEST_F(MenuTest, MainMenu_NotifiesOnlyOnLeaving) {
  std::size_t notified = 1;
  activities.information = [&] { notified = controller.sent().size(); };
  runMain({2, -1});
  EXPECT_EQ(notified, 0U);
  EXPECT_EQ(controller.sent().size(), 1U);
}

TEST_F(MenuTest, DownloadMenu_HasNoVariables) {
  runDownload({-1});
  ASSERT_EQ(gui.shown().size(), 1U);
  EXPECT_TRUE(gui.shown()[0].vars.empty());
  EXPECT_TRUE(gui.shown()[0].synchronous);
}

TEST_F(MenuTest, DownloadMenuEntries_RunTheirActivityAndReturn) {
  runDownload({1, 2, 3, 4, 1, -1});
  EXPECT_EQ(ran, (Names{"http", "serial 2", "serial 3", "serial 4", "http"}));
  EXPECT_EQ(gui.shown().size(), 6U);
  EXPECT_EQ(controller.sent().size(), 0U);
}

TEST_F(MenuTest, DownloadMenuOtherResults_ShowItAgain) {
  runDownload({0, 5, -2, INT_MAX, INT_MIN, -1});
  EXPECT_EQ(gui.shown().size(), 6U);
  EXPECT_EQ(ran, Names());
}

TEST_F(MenuTest, ActivityThatEndsByAnException_IsToldAndLeadsBackToItsMenu) {
  const auto fail = [] { throw std::bad_alloc(); };
  activities.information = fail;
  activities.logLevel = fail;
  activities.cloudProxy = fail;
  activities.httpDownload = fail;
  activities.serialDownload = [](int) { throw std::bad_alloc(); };
  for (const int left : {0, -1, 1, 7}) gui.answer("result.html", left);
  for (const int result : {1, 2, 3, 4, -1}) gui.answer("download.html", result);
  runMain({2, 3, 4, 1, -1});
  EXPECT_EQ(gui.shownNames(),
            (Names{"mainmenu.html", "result.html", "mainmenu.html", "result.html", "mainmenu.html", "result.html",
                   "mainmenu.html", "download.html", "result.html", "download.html", "result.html", "download.html",
                   "result.html", "download.html", "result.html", "download.html", "mainmenu.html"}));
  EXPECT_EQ(gui.shown()[1].vars,
            (std::map<std::string, std::string>{
                {"text", "<span style='color:#f00'><b>Error:</b></span><br>Cannot continue.<br>Out of memory?"}}));
}

TEST_F(MenuTest, DownloadMenuThatCannotBeShown_IsToldAndLeadsBackToTheMainMenu) {
  gui.answer("download.html", [](auto&) -> int { throw std::bad_alloc(); });
  runMain({1, -1});
  EXPECT_EQ(gui.shownNames(), (Names{"mainmenu.html", "download.html", "result.html", "mainmenu.html"}));
}

TEST_F(MenuTest, FailureThatCannotBeShownEither_LeadsBackToTheMenu) {
  activities.information = [] { throw std::bad_alloc(); };
  gui.answer("result.html", [](auto&) -> int { throw std::bad_alloc(); });
  runMain({2, -1});
  EXPECT_EQ(gui.shownNames(), (Names{"mainmenu.html", "result.html", "mainmenu.html"}));
}

TEST_F(MenuTest, Menus_PassNoCallback) {
  gui.answer("download.html", -1);
  runMain({1, -1});
  ASSERT_EQ(gui.shown().size(), 3U);
  for (const ShownPage& page : gui.shown()) {
    EXPECT_EQ(page.syncCallback, nullptr);
    EXPECT_EQ(page.data, nullptr);
  }
}

}  // namespace
