#include "cloudproxy/cloud_proxy_menu.h"
#include "tests/unit/cloudproxy/fixture.h"

namespace {

constexpr const char* kRead = R"({"proxy":{"command":"readconfig"}})";
constexpr const char* kList = R"([{"certs":["auth-ex","jx-basic"],"name":"test"},{"certs":["auth-ex"],"name":"prod"}])";
constexpr const char* kCannotRead =
    "<span style='color:#f00'><b>Error:</b></span><br>Cannot read settings.<br>Cloudproxy not running?";
constexpr const char* kCannotWrite =
    "<span style='color:#f00'><b>Error:</b></span><br>Cannot write settings.<br>Cloudproxy not running?";

std::string configAnswer(const std::string& mode) {
  return R"({"proxy":{"result":"success",)" + mode + R"("cloud_env":"test","cloud_hostname":"h","cloud_env_list2":)" +
         kList + "}}";
}

class SettingsPageTest : public CloudProxyTest {
 protected:
  // Runs the settings once; the page returns `result` with these two variables.
  void run(const std::string& mode, const std::string& environment, const std::string& cert, int result = 0) {
    answer("readconfig", configAnswer(mode));
    gui.answer("prx-settings.html", [=](Vars& vars) {
      vars["cloud_env"] = environment;
      vars["cert"] = cert;
      return result;
    });
    runMenu();
  }

  void runMenu() {
    gui.answer("cloudproxy.html", 2);
    runCloudProxyMenu();
  }

  // The request that writes, or empty.
  std::string written() const { return ipc.sent().size() == 2 ? ipc.sent()[1] : ""; }
};

TEST_F(SettingsPageTest, Page_ShowsTheSettings) {
  inOwnProcess([this] {
    run(R"("auth_ex":1,)", "", "", -1);
    EXPECT_EQ(gui.shownNames(), (Texts{"cloudproxy.html", "prx-settings.html", "cloudproxy.html"}));
    EXPECT_EQ(varsOf(1),
              (Vars{{"cloud_env", "test"}, {"cloud_env_list", kList}, {"auth_ex_support", "1"}, {"cert", "auth-ex"}}));
  });
}

TEST_F(SettingsPageTest, WithoutModes_ThePageIsToldSo) {
  inOwnProcess([this] {
    run("", "", "", -1);
    EXPECT_EQ(varsOf(1).at("auth_ex_support"), "0");
    EXPECT_EQ(varsOf(1).at("cert"), "jx-basic");
  });
}

TEST_F(SettingsPageTest, Accepted_WritesTheChoice) {
  for (const auto& [cert, mode] : std::map<std::string, std::string>{
           {"auth-ex", "1"}, {"jx-basic", "0"}, {"", "0"}, {"auth-ex ", "0"}, {"Auth-ex", "0"}}) {
    inOwnProcess([this, cert = cert, mode = mode] {
      answer("writeconfig", R"({"proxy":{"result":"success"}})");
      run(R"("auth_ex":0,)", "prod", cert);
      EXPECT_EQ(written(), R"({"proxy":{"auth_ex":)" + mode + R"(,"cloud_env":"prod","command":"writeconfig"}})");
      EXPECT_EQ(wrapped::waitsNs().back(), 5000000000);
      EXPECT_EQ(gui.shownNames(), (Texts{"cloudproxy.html", "prx-settings.html", "cloudproxy.html"}));
    });
  }
}

TEST_F(SettingsPageTest, AcceptedWithoutModes_WritesTheEnvironmentAlone) {
  inOwnProcess([this] {
    answer("writeconfig", R"({"proxy":{"result":"success"}})");
    run("", "prod", "auth-ex");
    EXPECT_EQ(written(), R"({"proxy":{"cloud_env":"prod","command":"writeconfig"}})");
  });
}

TEST_F(SettingsPageTest, ModesSupport_IsWhatTheProxySaidNotThePage) {
  inOwnProcess([this] {
    answer("writeconfig", R"({"proxy":{"result":"success"}})");
    answer("readconfig", configAnswer(""));
    gui.answer("prx-settings.html", [](Vars& vars) {
      vars["auth_ex_support"] = "1";
      return 0;
    });
    runMenu();
    EXPECT_EQ(written(), R"({"proxy":{"cloud_env":"test","command":"writeconfig"}})");
  });
}

TEST_F(SettingsPageTest, VariablesThatThePageRemoved_AreEmpty) {
  inOwnProcess([this] {
    answer("writeconfig", R"({"proxy":{"result":"success"}})");
    answer("readconfig", configAnswer(R"("auth_ex":1,)"));
    gui.answer("prx-settings.html", [](Vars& vars) {
      vars.clear();
      return 0;
    });
    runMenu();
    EXPECT_EQ(written(), R"({"proxy":{"auth_ex":0,"cloud_env":"","command":"writeconfig"}})");
  });
}

TEST_F(SettingsPageTest, AnyOtherResult_WritesNothing) {
  for (const int result : {-1, 1, 2}) {
    inOwnProcess([this, result] {
      run("", "prod", "jx-basic", result);
      EXPECT_EQ(ipc.sent(), Texts{kRead});
    });
  }
}

TEST_F(SettingsPageTest, CannotRead_ShowsTheError) {
  inOwnProcess([this] {
    runMenu();
    EXPECT_EQ(gui.shownNames(), (Texts{"cloudproxy.html", "result.html", "cloudproxy.html"}));
    EXPECT_EQ(varsOf(1), (Vars{{"text", kCannotRead}}));
    EXPECT_EQ(ipc.sent(), Texts{kRead});
  });
}

TEST_F(SettingsPageTest, CannotWrite_ShowsTheErrorAlone) {
  for (const std::string answered : {"", R"({"proxy":{"result":"error"}})", "null"}) {
    inOwnProcess([this, answered] {
      if (!answered.empty()) answer("writeconfig", answered);
      run("", "prod", "jx-basic");
      EXPECT_EQ(gui.shownNames(), (Texts{"cloudproxy.html", "prx-settings.html", "result.html", "cloudproxy.html"}));
      EXPECT_EQ(varsOf(2), (Vars{{"text", kCannotWrite}}));
    });
  }
}

}  // namespace
