// Answers that no proxy should give: huge, deep, no text, markup.
#include "cloudproxy/cloud_proxy_menu.h"
#include "cloudproxy/log_level.h"
#include "cloudproxy/proxy_settings.h"
#include "tests/unit/cloudproxy/fixture.h"

namespace {

constexpr std::size_t kHuge = 10 * 1024 * 1024;

std::string config(const std::string& list, const std::string& host = "h", const std::string& environment = "e") {
  return R"({"proxy":{"result":"success","cloud_env":")" + environment + R"(","cloud_hostname":")" + host +
         R"(","cloud_env_list2":)" + list + "}}";
}

class BadInputTest : public CloudProxyTest {
 protected:
  int read(const std::string& response) {
    answer("readconfig", response);
    return readProxySettings(settings);
  }

  ProxySettings settings;
};

TEST_F(BadInputTest, TenMegabytesOfList_ArriveWhole) {
  inOwnProcess([this] {
    std::string list = "[";
    while (list.size() < kHuge) list += R"({"certs":["jx-basic"],"name":"x"},)";
    list += R"({"certs":["last"],"name":"e"}])";
    EXPECT_EQ(read(config(list)), 0);
    EXPECT_TRUE(settings.cloud_env_list == list);  // no text for people
    EXPECT_EQ(settings.cert, "last");
  });
}

TEST_F(BadInputTest, TenMegabytesOfText_ArriveWhole) {
  inOwnProcess([this] {
    const std::string text(kHuge, 'x');
    EXPECT_EQ(read(config("[]", text, text)), 0);
    EXPECT_TRUE(settings.cloud_hostname == text);
    answer("readconfig", R"({"proxy":{"result":")" + text + "\"}}");
    EXPECT_EQ(readLogLevel(), -1);
  });
}

TEST_F(BadInputTest, DeepNesting_IsNoTrouble) {
  inOwnProcess([this] {
    const std::string deep = std::string(90, '[') + std::string(90, ']');
    EXPECT_EQ(read(config("[" + deep + R"(,{"name":)" + deep + R"(,"certs":[]},{"name":"e","certs":[)" + deep +
                          R"(,"c"]}])")),
              0);
    EXPECT_EQ(settings.cert, "c");
  });
}

// Deeper than what can be read from text, and than the stack has room for calls.
TEST_F(BadInputTest, HundredThousandLevels_AreNoTrouble) {
  inOwnProcess([this] {
    ipc.onSend([this](const zoripc::JSObject&) {
      zoripc::JSObject deep = json("[]");
      for (int i = 0; i < 100000; ++i) {
        zoripc::JSObject around = zoripc::JSObject::array();
        std::swap(around, deep);
        zoripc::JSObject object = zoripc::JSObject::object();
        object["x"] = std::move(around);
        deep = std::move(object);
      }
      zoripc::JSObject message = json(config("[]"));
      message["proxy"]["loglevel"] = std::move(deep);
      ipc.deliver("CloudProxyConfResponse", message);
      return 0;
    });
    EXPECT_EQ(readLogLevel(), -1);
    EXPECT_EQ(readProxySettings(settings), 0);
  });
}

TEST_F(BadInputTest, BytesThatAreNoText_DoNotSpoilTheList) {
  inOwnProcess([this] {
    ipc.onSend([this](const zoripc::JSObject&) {
      zoripc::JSObject message = json(config("[]"));
      zoripc::JSObject environment = zoripc::JSObject::object();
      environment["name"] = "e\xFF";
      environment["certs"] = json(R"(["c"])");
      message["proxy"]["cloud_env"] = "e\xFF";
      message["proxy"]["cloud_env_list2"].append(environment);
      ipc.deliver("CloudProxyConfResponse", message);
      return 0;
    });
    EXPECT_EQ(readProxySettings(settings), 0);
    EXPECT_EQ(settings.cloud_env_list, "[{\"certs\":[\"c\"],\"name\":\"e\xEF\xBF\xBD\"}]");
    EXPECT_EQ(settings.cert, "c");
  });
}

TEST_F(BadInputTest, MarkupInNames_StaysDataInTheList) {
  inOwnProcess([this] {
    const std::string list = R"([{"certs":["<b>\"'&"],"name":"<script>alert(1)</script>"}])";
    EXPECT_EQ(read(config(list, "<i>h</i>", "<script>alert(1)</script>")), 0);
    EXPECT_EQ(settings.cloud_env_list, list);
    EXPECT_EQ(settings.cloud_env, "<script>alert(1)</script>");
    EXPECT_EQ(settings.cert, "<b>\"'&");
  });
}

// Names go into "text" as they are, deliberately; it is the result page that lets only the program's own tags be tags.
TEST_F(BadInputTest, FormatsAndMarkupInNames_AreNotInterpretedByTheCheck) {
  inOwnProcess([this] {
    answer("readconfig", config("[]", "%s%n<b>"));
    answer("cloudcheck", R"({"proxy":{"result":"success","error_code":200,"error_reason":"%d%s<script>"}})");
    gui.answer("cloudproxy.html", 3);
    runCloudProxyMenu();
    EXPECT_EQ(varsOf(1).at("text"), "Connect to gateway:<div class='text_nowrap_tick'>%s%n<b></div>");
    EXPECT_EQ(varsOf(2).at("text"),
              "<span style='color:#0f0'><b>Cloud reachable</b></span><br>"
              "<b>Gateway:</b><div class='text_nowrap_tick'>%s%n<b></div>"
              "<b>Status</b>:<div class='text_nowrap_tick'>200 (%d%s<script>)</div>");
  });
}

TEST_F(BadInputTest, ResponsesOfEveryWrongShape_ShowTheErrorOfEachPage) {
  inOwnProcess([this] {
    for (const std::string response : {"null", "[]", "\"x\"", "1", "{}", R"({"proxy":null})", R"({"proxy":[]})",
                                       R"({"proxy":"success"})", R"({"proxy":{"result":"success"}})"}) {
      gui.reset();
      for (const char* const command : {"info", "readconfig", "readconfig", "readconfig"}) answer(command, response);
      for (const int result : {1, 2, 3}) gui.answer("cloudproxy.html", result);
      runCloudProxyMenu();
      runLogLevelPage();
      EXPECT_EQ(gui.shownNames(), (Texts{"cloudproxy.html", "result.html", "cloudproxy.html", "result.html",
                                         "cloudproxy.html", "result.html", "cloudproxy.html", "result.html"}));
    }
  });
}

}  // namespace
