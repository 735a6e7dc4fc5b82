#include "cloudproxy/probe.h"

#include "cloudproxy/log_level.h"
#include "tests/unit/cloudproxy/fixture.h"

namespace {

constexpr const char* kInfoRequest = R"({"proxy":{"command":"info"}})";
constexpr const char* kConfigRequest = R"({"proxy":{"command":"readconfig"}})";
constexpr const char* kInfo = R"({"proxy":{"result":"success","version":"1","device_type":"dev","auth_ex_support":0}})";

using ProbeTest = CloudProxyTest;

TEST_F(ProbeTest, BothAnswered_OffersTheCloudProxyMenu) {
  inOwnProcess([this] {
    answer("info", kInfo);
    answer("readconfig", R"({"proxy":{"result":"success","loglevel":3}})");
    EXPECT_EQ(proxyProbe(), ProxyEntry::kCloudProxy);
    EXPECT_EQ(ipc.sent(), Texts{kInfoRequest});
  });
}

TEST_F(ProbeTest, OnlyTheLogLevelAnswered_OffersTheLogLevel) {
  for (const char* const level : {"0", "3", "12", "2.5"}) {
    inOwnProcess([this, level] {
      answer("info", R"({"proxy":{"result":"error"}})");
      answer("readconfig", R"({"proxy":{"result":"success","loglevel":)" + std::string(level) + "}}");
      EXPECT_EQ(proxyProbe(), ProxyEntry::kLogLevel) << level;
      EXPECT_EQ(ipc.sent(), (Texts{kInfoRequest, kConfigRequest}));
    });
  }
}

TEST_F(ProbeTest, SilentProxy_OffersNeitherAfterTwoTimeOuts) {
  inOwnProcess([this] {
    EXPECT_EQ(proxyProbe(), ProxyEntry::kNone);
    EXPECT_EQ(ipc.sent(), (Texts{kInfoRequest, kConfigRequest}));
    EXPECT_EQ(wrapped::waitsNs(), (std::vector<long long>{5000000000, 5000000000}));
    EXPECT_EQ(gui.shownNames(), Texts{});
  });
}

TEST_F(ProbeTest, AbsentProxy_OffersNeitherAtOnce) {
  inOwnProcess([this] {
    ipc.onSend([this](const zoripc::JSObject& message) {
      ipc.reportFailure("CloudProxyConf", message);
      return 0;
    });
    EXPECT_EQ(proxyProbe(), ProxyEntry::kNone);
    ipc.onSend([](const zoripc::JSObject&) { return -1; });
    EXPECT_EQ(proxyProbe(), ProxyEntry::kNone);
  });
}

TEST_F(ProbeTest, LogLevelThatIsNone_OffersNeither) {
  inOwnProcess([this] {
    for (const char* const members : {R"("loglevel":-1)", R"("loglevel":"3")", R"("loglevel":null)", R"("other":1)"}) {
      answer("info", R"({"proxy":{"result":"success"}})");
      answer("readconfig", R"({"proxy":{"result":"success",)" + std::string(members) + "}}");
      EXPECT_EQ(proxyProbe(), ProxyEntry::kNone) << members;
    }
  });
}

TEST_F(ProbeTest, LogLevelOfAFailedReading_OffersNeither) {
  inOwnProcess([this] {
    answer("readconfig", R"({"proxy":{"result":"error","loglevel":3}})");
    EXPECT_EQ(proxyProbe(), ProxyEntry::kNone);
    EXPECT_EQ(readLogLevel(), -1);
  });
}

}  // namespace
