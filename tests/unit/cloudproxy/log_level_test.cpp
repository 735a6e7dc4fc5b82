#include "cloudproxy/log_level.h"

#include "tests/unit/cloudproxy/fixture.h"

namespace {

constexpr const char* kReadRequest = R"({"proxy":{"command":"readconfig"}})";
constexpr const char* kCannotRead =
    "<span style='color:#f00'><b>Error:</b></span><br>Cannot read loglevel.<br>Cloudproxy not running?";

std::string levelAnswer(const std::string& level) {
  return R"({"proxy":{"result":"success","loglevel":)" + level + "}}";
}

class LogLevelTest : public CloudProxyTest {
 protected:
  // Runs the page with the proxy's level `level`; the page returns `result` with "loglevel" set to `chosen`.
  void run(const std::string& level, const std::string& chosen, int result = 0) {
    answer("readconfig", levelAnswer(level));
    gui.answer("settings.html", [=](Vars& vars) {
      vars["loglevel"] = chosen;
      return result;
    });
    runLogLevelPage();
  }

  // What was sent after the reading.
  Texts sentThen() const {
    const Texts calls = ipc.calls();
    Texts sends;
    for (const std::string& call : calls) {
      if (call.rfind("ipcNotify", 0) == 0) sends.push_back(call);
    }
    sends.erase(sends.begin());
    return sends;
  }
};

TEST_F(LogLevelTest, Level_IsReadWithFiveSecondsTime) {
  inOwnProcess([this] {
    answer("readconfig", levelAnswer("12"));
    EXPECT_EQ(readLogLevel(), 12);
    EXPECT_EQ(ipc.sent(), Texts{kReadRequest});
    EXPECT_EQ(wrapped::waitsNs().at(0), 5000000000);
    answer("readconfig", levelAnswer("4.9"));
    EXPECT_EQ(readLogLevel(), 4);
    answer("readconfig", levelAnswer("99999999999"));
    EXPECT_EQ(readLogLevel(), 2147483647);
  });
}

TEST_F(LogLevelTest, Page_ShowsOneDigitOfTheLevelModuloNine) {
  for (const auto& [level, digit] : std::map<std::string, std::string>{{"0", "0"},
                                                                       {"3", "3"},
                                                                       {"8", "8"},
                                                                       {"9", "0"},
                                                                       {"12", "3"},
                                                                       {"80", "8"},
                                                                       {"2147483647", "1"},
                                                                       {"7.9", "7"}}) {
    inOwnProcess([this, level = level, digit = digit] {
      run(level, "", -1);
      EXPECT_EQ(gui.shownNames(), Texts{"settings.html"});
      EXPECT_EQ(varsOf(0), (Vars{{"loglevel", digit}})) << level;
      EXPECT_TRUE(gui.shown().at(0).synchronous);
    });
  }
}

TEST_F(LogLevelTest, NoLevel_ShowsTheError) {
  for (const std::string answered : {"", "-1", "-7", "\"3\"", "null", "true", "[]"}) {
    inOwnProcess([this, answered] {
      if (!answered.empty()) answer("readconfig", levelAnswer(answered));
      runLogLevelPage();
      EXPECT_EQ(gui.shownNames(), Texts{"result.html"}) << answered;
      EXPECT_EQ(varsOf(0), (Vars{{"text", kCannotRead}}));
      EXPECT_TRUE(gui.shown().at(0).synchronous);
      EXPECT_EQ(ipc.sent(), Texts{kReadRequest});
    });
  }
}

TEST_F(LogLevelTest, ChangedLevel_IsSentWithoutWaiting) {
  inOwnProcess([this] {
    run("3", "5");
    EXPECT_EQ(sentThen(), Texts{R"(ipcNotify("1", "CloudProxyConf", {"proxy":{"loglevel":5}}, 0, ""))"});
    EXPECT_EQ(wrapped::waitsNs().size(), 1U);
    EXPECT_EQ(gui.shownNames(), Texts{"settings.html"});
  });
}

TEST_F(LogLevelTest, ShownDigitOfAHigherLevel_IsSentWhenAccepted) {
  inOwnProcess([this] {
    answer("readconfig", levelAnswer("12"));
    gui.answer("settings.html", 0);
    runLogLevelPage();
    EXPECT_EQ(varsOf(0), (Vars{{"loglevel", "3"}}));
    EXPECT_EQ(sentThen(), Texts{R"(ipcNotify("1", "CloudProxyConf", {"proxy":{"loglevel":3}}, 0, ""))"});
  });
}

TEST_F(LogLevelTest, Sent_AsTheCLibraryReadsIt) {
  for (const auto& [chosen, level] : std::map<std::string, std::string>{
           {"x", "0"}, {" 7", "7"}, {"4x", "4"}, {"-2", "-2"}, {"12", "12"}, {"0x10", "0"}, {"010", "10"}}) {
    inOwnProcess([this, chosen = chosen, level = level] {
      run("3", chosen);
      EXPECT_EQ(ipc.sent().back(), R"({"proxy":{"loglevel":)" + level + "}}") << chosen;
    });
  }
}

// The bounds of a long are those of an int on the terminal: no number changes into another one there or here.
TEST_F(LogLevelTest, NumberBeyondInt_IsTheNearestInt) {
  for (const auto& [chosen, level] : std::map<std::string, std::string>{{"2147483647", "2147483647"},
                                                                        {"2147483648", "2147483647"},
                                                                        {"4294967301", "2147483647"},
                                                                        {"99999999999999999999999", "2147483647"},
                                                                        {"-2147483648", "-2147483648"},
                                                                        {"-2147483649", "-2147483648"},
                                                                        {"-99999999999999999999999", "-2147483648"}}) {
    inOwnProcess([this, chosen = chosen, level = level] {
      run("3", chosen);
      EXPECT_EQ(ipc.sent().back(), R"({"proxy":{"loglevel":)" + level + "}}") << chosen;
    });
  }
  inOwnProcess([this] {
    run("2147483647", "4294967301");
    EXPECT_EQ(sentThen(), Texts{}) << "it is the level that was read";
  });
}

TEST_F(LogLevelTest, SameLevelOrNone_SendsNothing) {
  for (const std::string chosen : {"3", "03", " 3", "3x", ""}) {
    inOwnProcess([this, chosen] {
      run("3", chosen);
      EXPECT_EQ(sentThen(), Texts{}) << chosen;
    });
  }
  inOwnProcess([this] {
    run("0", "x");
    EXPECT_EQ(sentThen(), Texts{});
  });
}

TEST_F(LogLevelTest, LevelBeyondItsDigit_IsComparedAsItWasRead) {
  inOwnProcess([this] {
    run("12", "12");
    EXPECT_EQ(varsOf(0), (Vars{{"loglevel", "3"}}));
    EXPECT_EQ(sentThen(), Texts{});
  });
  inOwnProcess([this] {
    run("12", "4");
    EXPECT_EQ(ipc.sent().back(), R"({"proxy":{"loglevel":4}})");
  });
}

TEST_F(LogLevelTest, RemovedVariable_SendsNothing) {
  inOwnProcess([this] {
    answer("readconfig", levelAnswer("3"));
    gui.answer("settings.html", [](Vars& vars) {
      vars.clear();
      return 0;
    });
    runLogLevelPage();
    EXPECT_EQ(sentThen(), Texts{});
  });
}

TEST_F(LogLevelTest, AnyOtherPageResult_SendsNothing) {
  for (const int result : {-1, 1, 2, -2}) {
    inOwnProcess([this, result] {
      run("3", "5", result);
      EXPECT_EQ(sentThen(), Texts{}) << result;
      EXPECT_EQ(gui.shownNames(), Texts{"settings.html"});
    });
  }
}

TEST_F(LogLevelTest, SendFails_ShowsNothing) {
  inOwnProcess([this] {
    answer("readconfig", levelAnswer("3"));
    gui.answer("settings.html", [this](Vars& vars) {
      ipc.onSend([](const zoripc::JSObject&) { return -1; });
      vars["loglevel"] = "5";
      return 0;
    });
    runLogLevelPage();
    EXPECT_EQ(sentThen().size(), 1U);
    EXPECT_EQ(gui.shownNames(), Texts{"settings.html"});
  });
}

}  // namespace
