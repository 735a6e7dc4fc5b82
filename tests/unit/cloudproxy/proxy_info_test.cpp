#include "cloudproxy/proxy_info.h"

#include "tests/unit/cloudproxy/fixture.h"

namespace {

constexpr const char* kAnswer =
    R"({"proxy":{"result":"success","version":"2.7.1","device_type":"prod","auth_ex_support":1}})";

class ProxyInfoTest : public CloudProxyTest {
 protected:
  ProxyInfo info{"before", "before", 'x'};
};

TEST_F(ProxyInfoTest, Answer_FillsTheRecord) {
  inOwnProcess([this] {
    answer("info", kAnswer);
    EXPECT_EQ(readProxyInfo(info), 0);
    EXPECT_EQ(info.version, "2.7.1");
    EXPECT_EQ(info.device_type, "prod");
    EXPECT_EQ(info.auth_ex_support, '1');
    EXPECT_EQ(ipc.sent(), Texts{R"({"proxy":{"command":"info"}})"});
    EXPECT_EQ(wrapped::waitsNs().at(0), 5000000000);
  });
}

TEST_F(ProxyInfoTest, AuthExSupport_IsOneForEveryNumberButZero) {
  for (const auto& [number, expected] : std::map<std::string, char>{
           {"0", '0'}, {"1", '1'}, {"2", '1'}, {"-1", '1'}, {"1.0", '1'}, {"0.0", '0'}, {"0.9", '0'}, {"1e300", '1'}}) {
    inOwnProcess([this, number = number, expected = expected] {
      answer("info",
             R"({"proxy":{"result":"success","version":"","device_type":"","auth_ex_support":)" + number + "}}");
      EXPECT_EQ(readProxyInfo(info), 0);
      EXPECT_EQ(info.auth_ex_support, expected) << number;
      EXPECT_EQ(info.version, "");
    });
  }
}

TEST_F(ProxyInfoTest, SecondReading_AsksNobody) {
  inOwnProcess([this] {
    answer("info", kAnswer);
    EXPECT_EQ(readProxyInfo(info), 0);
    ProxyInfo again;
    EXPECT_EQ(readProxyInfo(again), 0);
    EXPECT_EQ(again.version, "2.7.1");
    EXPECT_EQ(again.device_type, "prod");
    EXPECT_EQ(again.auth_ex_support, '1');
    EXPECT_EQ(ipc.sent().size(), 1U);
  });
}

TEST_F(ProxyInfoTest, ChangingTheRecord_LeavesTheCache) {
  inOwnProcess([this] {
    answer("info", kAnswer);
    EXPECT_EQ(readProxyInfo(info), 0);
    info.version = "changed";
    EXPECT_EQ(readProxyInfo(info), 0);
    EXPECT_EQ(info.version, "2.7.1");
  });
}

TEST_F(ProxyInfoTest, IncompleteAnswers_FailAndAreNotKept) {
  inOwnProcess([this] {
    for (const char* const members :
         {R"("version":"1","device_type":"prod")", R"("version":"1","auth_ex_support":1)",
          R"("device_type":"prod","auth_ex_support":1)", R"("version":1,"device_type":"prod","auth_ex_support":1)",
          R"("version":null,"device_type":"prod","auth_ex_support":1)",
          R"("version":["1"],"device_type":"prod","auth_ex_support":1)",
          R"("version":"1","device_type":{},"auth_ex_support":1)",
          R"("version":"1","device_type":"prod","auth_ex_support":"1")",
          R"("version":"1","device_type":"prod","auth_ex_support":true)",
          R"("version":"1","device_type":"prod","auth_ex_support":null)"}) {
      answer("info", R"({"proxy":{"result":"success",)" + std::string(members) + "}}");
      EXPECT_EQ(readProxyInfo(info), -1) << members;
      EXPECT_EQ(info.version + info.device_type + info.auth_ex_support, "beforebeforex");
    }
    answer("info", kAnswer);
    EXPECT_EQ(readProxyInfo(info), 0);
    EXPECT_EQ(info.version, "2.7.1");
  });
}

TEST_F(ProxyInfoTest, RequestWithoutSuccess_Fails) {
  inOwnProcess([this] {
    EXPECT_EQ(readProxyInfo(info), -1);
    answer("info", R"({"proxy":{"result":"error","version":"1","device_type":"prod","auth_ex_support":1}})");
    EXPECT_EQ(readProxyInfo(info), -1);
    ipc.onSend([](const zoripc::JSObject&) { return -1; });
    EXPECT_EQ(readProxyInfo(info), -1);
    ipc.unicastErrorResults({-1});
    EXPECT_EQ(readProxyInfo(info), -1);
    EXPECT_EQ(info.version, "before");
  });
}

}  // namespace
