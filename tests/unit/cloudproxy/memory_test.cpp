// Where memory runs out in the middle of an exchange.
#include <cerrno>
#include <new>

#include "cloudproxy/cloud_proxy_menu.h"
#include "cloudproxy/exchange.h"
#include "cloudproxy/log_level.h"
#include "cloudproxy/proxy_info.h"
#include "cloudproxy/proxy_settings.h"
#include "tests/support/no_memory.h"
#include "tests/unit/cloudproxy/fixture.h"

namespace {

constexpr const char* kSuccess =
    R"({"proxy":{"result":"success","text":"more than what fits into the string itself"}})";
constexpr const char* kFail = R"({"result":"FAIL"})";
constexpr int kMoreThanAnyNeeds = 300;

class MemoryTest : public CloudProxyTest {
 protected:
  int request() {
    answer("info", kSuccess);
    zoripc::JSObject message = json(R"({"proxy":{"command":"info"}})");
    const int result = cloudProxyRequest(message, 5);
    noMemory::after(-1);
    ipc.drain();
    last = message.dump();
    return result;
  }

  // Runs `read` with one more allocation that works after the response each time, until it reports success; returns how
  // often it reported failure.
  int failuresUntilSuccess(const std::function<bool()>& read) {
    for (int count = 0; count < kMoreThanAnyNeeds; ++count) {
      wrapped::afterWaits([count] { noMemory::after(count); });
      const bool done = read();
      noMemory::after(-1);
      if (done) return count;
    }
    return -1;
  }

  std::string last;
};

TEST_F(MemoryTest, OneAllocationOfTheCallbackFails_WakesTheRequester) {
  inOwnProcess([this] {
    int failures = 0;
    int result = -3;
    for (; result == -3 && failures < kMoreThanAnyNeeds; ++failures) {
      ipc.aroundCallbacks([failures] { noMemory::once(failures); }, [] { noMemory::after(-1); });
      result = request();
      EXPECT_EQ(last, result == 0 ? kSuccess : kFail);
    }
    EXPECT_EQ(result, 0);
    EXPECT_GT(failures, 1);
  });
}

TEST_F(MemoryTest, EveryAllocationOfTheCallbackFails_EndsWithTheTimeOut) {
  inOwnProcess([this] {
    ipc.aroundCallbacks([] { noMemory::after(0); }, [] { noMemory::after(-1); });
    wrapped::afterWaits([] { wrapped::answerWaits({ETIMEDOUT}); });
    EXPECT_EQ(request(), -2);
    EXPECT_EQ(last, "null");
  });
}

TEST_F(MemoryTest, AllocationsOfTheRequesterFail_CountAsNoResponse) {
  inOwnProcess([this] {
    const int failures = failuresUntilSuccess([this] {
      const int result = request();
      EXPECT_TRUE(result == 0 ? last == kSuccess : result == -2 && last == "null") << result << " " << last;
      return result == 0;
    });
    EXPECT_GT(failures, 3);
  });
}

TEST_F(MemoryTest, AllocationsOfReadersFail_TheyReportFailure) {
  inOwnProcess([this] {
    const int infoFailures = failuresUntilSuccess([this] {
      answer("info", R"({"proxy":{"result":"success","version":"1","device_type":"prod","auth_ex_support":1}})");
      ProxyInfo info;
      return readProxyInfo(info) == 0;
    });
    EXPECT_GT(infoFailures, 3);
    const int settingsFailures = failuresUntilSuccess([this] {
      answer(
          "readconfig",
          R"({"proxy":{"result":"success","cloud_env":"prod","cloud_hostname":"gateway","cloud_env_list":["prod"]}})");
      ProxySettings settings;
      return readProxySettings(settings) == 0;
    });
    EXPECT_GT(settingsFailures, 10);
    const int levelFailures = failuresUntilSuccess([this] {
      answer("readconfig", R"({"proxy":{"result":"success","loglevel":4}})");
      return readLogLevel() == 4;
    });
    EXPECT_GT(levelFailures, 3);
  });
}

TEST_F(MemoryTest, NoMemoryForARequest_IsAFailureToRead) {
  inOwnProcess([this] {
    ProxyInfo info;
    ProxySettings settings;
    noMemory::after(0);
    const int infoResult = readProxyInfo(info);
    const int settingsResult = readProxySettings(settings);
    const int level = readLogLevel();
    noMemory::after(-1);
    EXPECT_EQ(infoResult, -1);
    EXPECT_NE(settingsResult, 0);
    EXPECT_EQ(level, -1);
    EXPECT_EQ(ipc.sent(), Texts{});
  });
}

TEST_F(MemoryTest, NoMemoryForALevelThatWasChosen_ShowsNothing) {
  inOwnProcess([this] {
    answer("readconfig", R"({"proxy":{"result":"success","loglevel":3}})");
    gui.answer("settings.html", [](Vars& vars) {
      vars["loglevel"] = "5";
      noMemory::after(0);
      return 0;
    });
    EXPECT_NO_THROW(runLogLevelPage());
    const bool failed = noMemory::met();
    noMemory::after(-1);
    EXPECT_TRUE(failed);
    EXPECT_EQ(ipc.sent().size(), 1U);
    EXPECT_EQ(gui.shownNames(), Texts{"settings.html"});
  });
}

// Whoever runs them shows it: the main menu.
TEST_F(MemoryTest, NoMemoryForAMenuOrItsOnlyPage_IsLeftToTheCaller) {
  inOwnProcess([this] {
    const auto outOfMemory = [](Vars&) -> int { throw std::bad_alloc(); };
    answer("readconfig", R"({"proxy":{"result":"success","loglevel":3}})");
    gui.answer("settings.html", outOfMemory);
    EXPECT_THROW(runLogLevelPage(), std::bad_alloc);
    gui.answer("cloudproxy.html", outOfMemory);
    EXPECT_THROW(runCloudProxyMenu(), std::bad_alloc);
  });
}

}  // namespace
