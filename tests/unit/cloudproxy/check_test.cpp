#include "cloudproxy/cloud_proxy_menu.h"
#include "tests/unit/cloudproxy/fixture.h"

namespace {

const std::string kError = "<span style='color:#f00'><b>Error:</b></span><br>";
const std::string kReachable = "<span style='color:#0f0'><b>Cloud reachable</b></span><br>";
const std::string kNotReachable = "<span style='color:#f00'><b>Cloud not reachable</b></span><br>";

std::string status(const std::string& codeAndReason) {
  return "<b>Gateway:</b><div class='text_nowrap_tick'>gateway.test</div>"
         "<b>Status</b>:<div class='text_nowrap_tick'>" +
         codeAndReason + "</div>";
}

class CheckTest : public CloudProxyTest {
 protected:
  CheckTest() { configure("gateway.test"); }

  void configure(const std::string& host) {
    answer("readconfig", R"({"proxy":{"result":"success","cloud_env":"prod","cloud_env_list2":[],"cloud_hostname":")" +
                             host + "\"}}");
  }

  // Runs the check once and returns the text that it ends with. `answered`: the members of the response; empty: none.
  std::string run(const std::string& answered) {
    if (!answered.empty()) answer("cloudcheck", "{\"proxy\":{" + answered + "}}");
    gui.answer("cloudproxy.html", 3);
    runCloudProxyMenu();
    return textOfResult();
  }

  std::string textOfResult() const {
    const auto shown = gui.shown();
    EXPECT_EQ(gui.shownNames(), (Texts{"cloudproxy.html", "wait.html", "result.html", "cloudproxy.html"}));
    EXPECT_EQ(shown.at(2).vars.size(), 1U);
    return shown.at(2).vars.at("text");
  }
};

TEST_F(CheckTest, WaitingPage_NamesTheGateway) {
  inOwnProcess([this] {
    run(R"("result":"success","error_code":200)");
    EXPECT_EQ(varsOf(1), (Vars{{"text", "Connect to gateway:<div class='text_nowrap_tick'>gateway.test</div>"}}));
    EXPECT_FALSE(gui.shown().at(1).synchronous);
    EXPECT_EQ(gui.shown().at(1).callback, nullptr);
  });
}

TEST_F(CheckTest, VariablesOfTheMenuPage_DoNotReachTheResult) {
  inOwnProcess([this] {
    answer("cloudcheck", R"({"proxy":{"result":"success","error_code":200}})");
    gui.answer("cloudproxy.html", [](Vars& vars) {
      vars["left"] = "over";
      return 3;
    });
    runCloudProxyMenu();
    EXPECT_EQ(textOfResult(), kReachable + status("200 (unknown)"));  // and no variable beside the text
  });
}

TEST_F(CheckTest, Requests_AreReadconfigAndCloudcheckWithTheirTimes) {
  inOwnProcess([this] {
    run(R"("result":"success","error_code":200)");
    EXPECT_EQ(ipc.sent(), (Texts{R"({"proxy":{"command":"readconfig"}})", R"({"proxy":{"command":"cloudcheck"}})"}));
    EXPECT_EQ(wrapped::waitsNs(), (std::vector<long long>{5000000000, 10000000000}));
  });
}

TEST_F(CheckTest, Codes_AreReachableFrom200To299) {
  for (const auto& [code, heading] : std::map<std::string, std::string>{{"200", kReachable},
                                                                        {"204", kReachable},
                                                                        {"299", kReachable},
                                                                        {"199", kNotReachable},
                                                                        {"300", kNotReachable},
                                                                        {"503", kNotReachable},
                                                                        {"0", kNotReachable},
                                                                        {"7", kNotReachable}}) {
    inOwnProcess([this, code = code, heading = heading] {
      EXPECT_EQ(run(R"("result":"success","error_reason":"Some Reason","error_code":)" + code),
                heading + status(code + " (Some Reason)"));
    });
  }
}

TEST_F(CheckTest, NoReason_IsUnknown) {
  for (const std::string reason : {"", R"(,"error_reason":5)", R"(,"error_reason":null)", R"(,"error_reason":["x"])"}) {
    inOwnProcess([this, reason] {
      EXPECT_EQ(run(R"("result":"success","error_code":204)" + reason), kReachable + status("204 (unknown)"));
    });
  }
}

TEST_F(CheckTest, EmptyReason_StaysEmpty) {
  inOwnProcess([this] {
    EXPECT_EQ(run(R"("result":"success","error_code":503,"error_reason":"")"), kNotReachable + status("503 ()"));
  });
}

TEST_F(CheckTest, FailedResult_MayCarryACode) {
  for (const std::string result : {R"("result":"error",)", R"("result":1,)", ""}) {
    inOwnProcess([this, result] {
      EXPECT_EQ(run(result + R"("error_code":60,"error_reason":"bad certificate")"),
                kNotReachable + status("60 (bad certificate)"));
    });
  }
}

TEST_F(CheckTest, FloatingCode_IsReadAsAnInteger) {
  inOwnProcess(
      [this] { EXPECT_EQ(run(R"("result":"success","error_code":204.9)"), kReachable + status("204 (unknown)")); });
}

TEST_F(CheckTest, NoCode_IsATimeOutOfTheCloud) {
  for (const std::string members :
       {R"("result":"success")", R"("result":"success","error_code":"200")", R"("result":"success","error_code":null)",
        R"("result":"success","error_code":true)", R"("result":"error","error_reason":"x")",
        R"("result":"success","error_code":-2)", R"("result":"success","error_code":-99)"}) {
    inOwnProcess([this, members] {
      EXPECT_EQ(run(members), kError + "No cloud response (timeout)") << members;
      EXPECT_EQ(wrapped::sleepsMs(), std::vector<long>{});
    });
  }
}

TEST_F(CheckTest, NoResponse_IsATimeOutOfTheCloudAtOnce) {
  inOwnProcess([this] {
    EXPECT_EQ(run(""), kError + "No cloud response (timeout)");
    EXPECT_EQ(wrapped::sleepsMs(), std::vector<long>{});
  });
}

TEST_F(CheckTest, FailedDelivery_IsATimeOutOfTheCloud) {
  inOwnProcess([this] {
    gui.onAsync([this](const ShownPage&) {
      ipc.onSend([this](const zoripc::JSObject& message) {
        ipc.reportFailure("CloudProxyConf", message);
        return 0;
      });
    });
    EXPECT_EQ(run(""), kError + "No cloud response (timeout)");
  });
}

TEST_F(CheckTest, SendFails_IsAProxyThatDoesNotRun) {
  inOwnProcess([this] {
    gui.onAsync([this](const ShownPage&) { ipc.onSend([](const zoripc::JSObject&) { return -1; }); });
    EXPECT_EQ(run(""), kError + "No response.<br>Cloudproxy not running?");
    EXPECT_EQ(wrapped::sleepsMs(), std::vector<long>{});
  });
}

TEST_F(CheckTest, CodeMinusOneOfTheProxy_ReadsTheSame) {
  inOwnProcess([this] {
    EXPECT_EQ(run(R"("result":"success","error_code":-1)"), kError + "No response.<br>Cloudproxy not running?");
  });
}

TEST_F(CheckTest, QuickAnswer_KeepsTheWaitingPageTwoSeconds) {
  inOwnProcess([this] {
    std::vector<long> sleeps;  // before the result is shown
    gui.answer("result.html", [&](Vars&) {
      sleeps = wrapped::sleepsMs();
      return 0;
    });
    run(R"("result":"success","error_code":200)");
    EXPECT_EQ(sleeps, std::vector<long>(20, 100));
  });
}

TEST_F(CheckTest, SlowShowing_DoesNotShortenTheTwoSeconds) {
  inOwnProcess([this] {
    gui.onAsync([](const ShownPage&) { wrapped::advanceMs(1500); });
    run(R"("result":"success","error_code":200)");
    EXPECT_EQ(wrapped::sleepsMs(), std::vector<long>(20, 100));
  });
}

TEST_F(CheckTest, SlowAnswer_KeepsTheWaitingPageNoLonger) {
  inOwnProcess([this] {
    wrapped::afterWaits([] { wrapped::advanceMs(1950); });
    run(R"("result":"success","error_code":200)");
    EXPECT_EQ(wrapped::sleepsMs(), std::vector<long>(1, 100));
  });
  inOwnProcess([this] {
    wrapped::afterWaits([] { wrapped::advanceMs(2000); });
    run(R"("result":"success","error_code":503)");
    EXPECT_EQ(wrapped::sleepsMs(), std::vector<long>{});
  });
}

TEST_F(CheckTest, CannotReadSettings_ShowsTheErrorWithoutWaiting) {
  inOwnProcess([this] {
    answer("cloudcheck", R"({"proxy":{"result":"success","error_code":200}})");
    ipc.onSend([](const zoripc::JSObject&) { return -1; });
    gui.answer("cloudproxy.html", 3);
    runCloudProxyMenu();
    EXPECT_EQ(gui.shownNames(), (Texts{"cloudproxy.html", "result.html", "cloudproxy.html"}));
    EXPECT_EQ(varsOf(1), (Vars{{"text", kError + "Cannot read settings.<br>Cloudproxy not running?"}}));
    EXPECT_EQ(ipc.sent().size(), 1U);
  });
}

// A proxy that lists its environments by their names alone: reading its settings takes its information as well.
class OldListCheckTest : public CheckTest {
 protected:
  void checkAgainst(const std::string& host) {
    answer("readconfig", R"({"proxy":{"result":"success","cloud_env":"test","cloud_env_list":["prod","test"],)"
                         R"("cloud_hostname":")" +
                             host + "\"}}");
    answer("cloudcheck", R"({"proxy":{"result":"success","error_code":200,"error_reason":"OK"}})");
    gui.answer("cloudproxy.html", 3);
    runCloudProxyMenu();
  }
};

TEST_F(OldListCheckTest, FirstCheck_AsksForTheInformationInBetween) {
  inOwnProcess([this] {
    run(R"("result":"success","error_code":200)");  // uses up the answer with the new list
    answer("info", R"({"proxy":{"result":"success","version":"1","device_type":"prod","auth_ex_support":1}})");
    checkAgainst("old.test");
    checkAgainst("old.test");
    EXPECT_EQ(ipc.sent(), (Texts{R"({"proxy":{"command":"readconfig"}})", R"({"proxy":{"command":"cloudcheck"}})",
                                 R"({"proxy":{"command":"readconfig"}})", R"({"proxy":{"command":"info"}})",
                                 R"({"proxy":{"command":"cloudcheck"}})", R"({"proxy":{"command":"readconfig"}})",
                                 R"({"proxy":{"command":"cloudcheck"}})"}));
  });
}

TEST_F(OldListCheckTest, ProxyWithoutInformation_IsCheckedAllTheSame) {
  inOwnProcess([this] {
    run(R"("result":"success","error_code":503)");
    checkAgainst("old.test");
    EXPECT_EQ(varsOf(5).at("text"), "Connect to gateway:<div class='text_nowrap_tick'>old.test</div>");
    EXPECT_EQ(varsOf(6).at("text"), kReachable +
                                        "<b>Gateway:</b><div class='text_nowrap_tick'>old.test</div>"
                                        "<b>Status</b>:<div class='text_nowrap_tick'>200 (OK)</div>");
  });
}

}  // namespace
