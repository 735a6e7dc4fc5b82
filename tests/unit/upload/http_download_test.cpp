#include "upload/http_download.h"

#include <gtest/gtest.h>
#include <net/if.h>

#include <functional>
#include <optional>

#include "http/listener.h"
#include "tests/support/fake_controller.h"
#include "tests/support/fake_gui.h"
#include "tests/support/vanishing_stack.h"
#include "tests/unit/upload/fake_network.h"
#include "upload/jx_download_server.h"
#include "upload/server_only.h"

namespace {

constexpr unsigned kRunning = IFF_UP | IFF_RUNNING;

using Vars = std::map<std::string, std::string>;
using Names = std::vector<std::string>;

// What the listener's stand-in was called with, and what it does.
struct Listener {
  int calls = 0;
  zorhtml::ServerSettings* settings = nullptr;
  int port = 0;
  int auxEndpoint = -1;
  bool stopBefore = true;
  bool stopAfter = false;
  bool copiesAreServers = false;
  bool result = true;
  std::vector<std::string> shownBefore;
  std::function<void()> work;
};

Listener listener;

}  // namespace

namespace zorhtml {

bool serve(ServerSettings& settings, const HttpThread& prototype, CopyServer copy) {
  ++listener.calls;
  listener.settings = &settings;
  listener.port = settings.port;
  listener.auxEndpoint = settings.auxEndpoint;
  listener.stopBefore = settings.stop;
  const std::unique_ptr<HttpThread> server(copy(prototype));
  listener.copiesAreServers = dynamic_cast<JXDownloadServer*>(server.get()) != nullptr;
  listener.shownBefore = FakeGui::instance().shownNames();
  if (listener.work) listener.work();
  listener.stopAfter = settings.stop;
  return listener.result;
}

}  // namespace zorhtml

namespace {

class HttpDownloadTest : public testing::Test {
 protected:
  HttpDownloadTest() {
    gui.reset();
    network.reset();
    FakeController::instance().reset();
    listener = Listener();
  }

  std::string urlList() {
    runHttpDownload();
    const ShownPage page = gui.shown().back();
    EXPECT_EQ(page.page, "download-http.html");
    EXPECT_EQ(page.vars.size(), 1U);
    return page.vars.at("url_list");
  }

  FakeGui& gui = FakeGui::instance();
  FakeNetwork& network = FakeNetwork::instance();
};

TEST_F(HttpDownloadTest, NoAddress_IsReportedAfterTenAttempts) {
  network.add("lo", "127.0.0.1", kRunning);
  network.add("eth0", "fe80::1", kRunning);
  runHttpDownload();
  EXPECT_EQ(network.lists, 10);
  EXPECT_EQ(network.sleeps, std::vector<unsigned>(10, 1));
  EXPECT_EQ(gui.shownNames(), (Names{"wait.html", "result.html"}));
  const auto shown = gui.shown();
  EXPECT_FALSE(shown[0].synchronous);
  EXPECT_EQ(shown[0].vars, (Vars{{"text", "Checking network."}}));
  EXPECT_EQ(shown[0].callback, nullptr);
  EXPECT_TRUE(shown[1].synchronous);
  EXPECT_EQ(shown[1].vars,
            (Vars{{"text",
                   "<span style='color:#f00'><b>Error:</b></span><br>Cannot fetch terminal IP address.<br>"
                   "Network not (yet) running?"}}));
  EXPECT_EQ(listener.calls, 0);
}

TEST_F(HttpDownloadTest, ResultOfTheErrorPage_IsIgnored) {
  for (const int result : {-1, 0, 1, 9}) {
    gui.reset();
    gui.answer("result.html", result);
    runHttpDownload();
    EXPECT_EQ(gui.shownNames(), (Names{"wait.html", "result.html"}));
  }
}

TEST_F(HttpDownloadTest, AddressAtOnce_NeedsNoSleep) {
  network.add("eth0", "192.168.1.20", kRunning);
  std::vector<int> listsBefore;  // each page
  gui.onAsync([&](const ShownPage&) { listsBefore.push_back(network.lists); });
  runHttpDownload();
  EXPECT_EQ(listsBefore, (std::vector<int>{0, 1}));
  EXPECT_EQ(network.sleeps.size(), 0U);
  EXPECT_EQ(gui.shownNames(), (Names{"wait.html", "download-http.html"}));
}

TEST_F(HttpDownloadTest, AddressLater_IsWaitedFor) {
  network.add("eth0", "192.168.1.20", kRunning);
  for (int sleeps = 1; sleeps <= 9; ++sleeps) {
    gui.reset();
    network.sleeps.clear();
    network.appearsAfterSleeps = sleeps;
    runHttpDownload();
    EXPECT_EQ(network.sleeps, std::vector<unsigned>(static_cast<std::size_t>(sleeps), 1));
    EXPECT_EQ(gui.shownNames(), (Names{"wait.html", "download-http.html"}));
  }
}

TEST_F(HttpDownloadTest, AddressAfterTheTenthSleep_IsTooLate) {
  network.add("eth0", "192.168.1.20", kRunning);
  network.appearsAfterSleeps = 10;
  runHttpDownload();
  EXPECT_EQ(gui.shownNames(), (Names{"wait.html", "result.html"}));
}

TEST_F(HttpDownloadTest, Urls_AreListedInOrder) {
  network.add("eth0", "192.168.1.20", kRunning);
  EXPECT_EQ(urlList(), R"([{"if_name":"eth0","url":"http://192.168.1.20:6370"}])");
  network.add("eth0", "2001:db8::1%1", kRunning);
  network.add("eth0", "fd::1", kRunning);
  network.add("a\"b", "10.0.0.1", kRunning);
  EXPECT_EQ(urlList(), R"([{"if_name":"eth0","url":"http://192.168.1.20:6370"},)"
                       R"({"if_name":"eth0","url":"http://[2001:db8::1]:6370"},)"
                       R"({"if_name":"eth0","url":"http://[fd::1]:6370"},)"
                       R"({"if_name":"a\"b","url":"http://10.0.0.1:6370"}])");
}

TEST_F(HttpDownloadTest, Server_RunsWhileThePageIsUp) {
  network.add("eth0", "192.168.1.20", kRunning);
  listener.work = [this] { gui.report(0, -1); };
  runHttpDownload();
  EXPECT_EQ(listener.calls, 1);
  EXPECT_EQ(listener.port, 6370);
  EXPECT_EQ(listener.auxEndpoint, 0);
  EXPECT_TRUE(listener.copiesAreServers);
  EXPECT_EQ(listener.shownBefore, (Names{"wait.html", "download-http.html"}));
  const ShownPage page = gui.shown().back();
  EXPECT_FALSE(page.synchronous);
  EXPECT_EQ(page.callback, stopOnPageEnd);
  EXPECT_EQ(page.data, listener.settings);
  EXPECT_FALSE(listener.stopBefore);
  EXPECT_TRUE(listener.stopAfter);
}

TEST_F(HttpDownloadTest, NothingIsShownAfterTheServer) {
  network.add("eth0", "192.168.1.20", kRunning);
  for (const bool result : {true, false}) {  // false: as where the port is taken
    gui.reset();
    listener.result = result;
    runHttpDownload();
    EXPECT_EQ(gui.shownNames(), (Names{"wait.html", "download-http.html"})) << result;
  }
  EXPECT_EQ(FakeController::instance().sent().size(), 0U);
}

TEST_F(HttpDownloadTest, EachRun_StartsAnew) {
  network.add("eth0", "192.168.1.20", kRunning);
  listener.work = [this] { gui.report(0, -1); };
  for (int run = 0; run < 2; ++run) {
    listener.stopBefore = true;
    runHttpDownload();
    EXPECT_FALSE(listener.stopBefore) << run;
  }
  network.entries.clear();
  gui.reset();
  runHttpDownload();
  EXPECT_EQ(gui.shown()[0].vars, (Vars{{"text", "Checking network."}}));
  EXPECT_EQ(gui.shown().back().page, "result.html");
  EXPECT_EQ(gui.shown().back().vars.size(), 1U);
}

TEST_F(HttpDownloadTest, PressAfterTheServerHasEnded_DoesNoHarm) {
  network.add("eth0", "192.168.1.20", kRunning);
  onVanishingStack(runHttpDownload);  // as where the port is taken: the page is up still
  gui.report(0, -1);
  EXPECT_EQ(gui.shownNames().back(), "download-http.html");
}

bool stopsOn(int type, int result) {
  zorhtml::ServerSettings settings(6370);
  const zorgui::UICallbackData info{result};
  stopOnPageEnd(&settings, type, &info);
  return settings.stop;
}

TEST(StopOnPageEnd, OnlyThePagesEnd_Stops) {
  EXPECT_TRUE(stopsOn(0, -1));
  for (const int result : {0, 1, -2, 255, -32768}) EXPECT_FALSE(stopsOn(0, result)) << result;
  for (const int type : {1, -1, 2, 256}) EXPECT_FALSE(stopsOn(type, -1)) << type;
}

TEST(StopOnPageEnd, MissingData_IsIgnored) {
  const zorgui::UICallbackData info{-1};
  stopOnPageEnd(nullptr, 0, &info);
  zorhtml::ServerSettings settings(6370);
  stopOnPageEnd(&settings, 0, nullptr);
  EXPECT_FALSE(settings.stop);
}

TEST(StopOnPageEnd, Stop_StaysSet) {
  zorhtml::ServerSettings settings(6370);
  const zorgui::UICallbackData left{-1};
  const zorgui::UICallbackData other{1};
  stopOnPageEnd(&settings, 0, &left);
  stopOnPageEnd(&settings, 0, &other);
  EXPECT_TRUE(settings.stop);
  stopOnPageEnd(&settings, 0, &left);
  EXPECT_TRUE(settings.stop);
}

TEST_F(HttpDownloadTest, ServerOnly_ShowsNothing) {
  runServerOnly();
  EXPECT_EQ(listener.calls, 1);
  EXPECT_EQ(listener.port, 6370);
  EXPECT_EQ(listener.auxEndpoint, 0);
  EXPECT_FALSE(listener.stopBefore);
  EXPECT_TRUE(listener.copiesAreServers);
  EXPECT_EQ(network.lists, 0);
  EXPECT_EQ(gui.shown().size(), 0U);
  EXPECT_EQ(FakeController::instance().sent().size(), 0U);
}

}  // namespace
