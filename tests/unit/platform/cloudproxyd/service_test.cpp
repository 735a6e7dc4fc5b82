#include "platform/linux/services/cloudproxyd/service.h"

#include <gtest/gtest.h>

#include <new>
#include <utility>
#include <vector>

#include "platform/linux/support/failure.h"
#include "tests/support/no_memory.h"

namespace cloudproxyd {
namespace {

using zoripc::JSObject;
using Texts = std::vector<std::string>;

class ServiceTest : public testing::Test {
 protected:
  ServiceTest() { options.environments = usualEnvironments("prod"); }

  Service make() {
    options.host = "gateway.test";
    return {options, initialSettings(options.environments),
            [this](GatewayChecker::Done done) {
              checks.push_back(std::move(done));
              return checks.size() <= checksAllowed;
            },
            [this](const Settings& settings) {
              const noMemory::Exempt exempt;
              kept.push_back(std::to_string(settings.logLevel) + " " + settings.environment +
                             (settings.authEx ? " on" : " off"));
              if (!keepProblem.empty()) throw jxplatform::Failure(keepProblem);
            },
            [this](const std::string& line) { told.push_back(line); }};
  }

  // The responses to one message.
  Texts ask(Service& service, const std::string& message) {
    responses.clear();
    JSObject value;
    EXPECT_TRUE(JSObject::parse(message, value));
    service.take(value, [this](const JSObject& response) { responses.push_back(response.dump()); });
    return responses;
  }

  ServiceOptions options;
  std::vector<GatewayChecker::Done> checks;
  std::size_t checksAllowed = 10;
  std::string keepProblem;
  Texts kept;
  Texts told;
  Texts responses;
};

std::string error(const std::string& reason) {
  return R"({"proxy":{"error_reason":")" + reason + R"(","result":"error"}})";
}

TEST_F(ServiceTest, MessageWithoutACommand_IsAnswered) {
  Service service = make();
  for (const char* const message :
       {"null", "[]", "1", "{}", R"({"proxy":null})", R"({"proxy":[]})", R"({"proxy":{"command":5}})",
        R"({"command":"info"})", R"({"proxy":{"command":null,"loglevel":5}})"}) {
    EXPECT_EQ(ask(service, message), Texts{error("the request has no command")}) << message;
  }
  EXPECT_EQ(ask(service, R"({"proxy":{"command":"Info"}})"), Texts{error("unknown command")});
}

TEST_F(ServiceTest, Info_TellsDeviceAndSupport) {
  Service service = make();
  EXPECT_EQ(
      ask(service, R"({"proxy":{"command":"info"}})"),
      Texts{
          R"({"proxy":{"auth_ex_support":1,"command":"info","device_type":"prod","result":"success","version":")" JX_VERSION
          R"("}})"});
}

TEST_F(ServiceTest, InfoTurnedOff_IsUnknown) {
  options.answersInfo = false;
  Service service = make();
  EXPECT_EQ(ask(service, R"({"proxy":{"command":"info"}})"), Texts{error("unknown command")});
}

TEST_F(ServiceTest, OldList_HasNamesAlone) {
  options.listFormat = ListFormat::kOld;
  options.environments = {{"a", {"x"}}, {"prod", {}}};
  Service service = make();
  EXPECT_EQ(ask(service, R"({"proxy":{"command":"readconfig"}})"),
            Texts{R"({"proxy":{"cloud_env":"a","cloud_env_list":["a","prod"],"cloud_hostname":"gateway.test",)"
                  R"("command":"readconfig","loglevel":3,"result":"success"}})"});
}

TEST_F(ServiceTest, LogLevel_IsKeptWithoutAResponse) {
  Service service = make();
  EXPECT_EQ(ask(service, R"({"proxy":{"loglevel":12}})"), Texts{});
  EXPECT_EQ(kept, Texts{"12 prod on"});
  EXPECT_EQ(told, Texts{"Log level 12, environment prod, auth-ex"});
  for (const auto& [level, text] : {std::pair("2.9", "2"), {"0", "0"}, {"2147483647", "2147483647"}}) {
    EXPECT_EQ(ask(service, std::string(R"({"proxy":{"loglevel":)") + level + "}}"), Texts{});
    EXPECT_EQ(kept.back(), std::string(text) + " prod on");
  }
}

TEST_F(ServiceTest, LogLevelThatIsNone_IsTold) {
  Service service = make();
  for (const char* const level : {"-1", "-0.5", "2147483648", "2147483647.5", "99999999999999999999", "1e308", "-1e308",
                                  "\"5\"", "null", "true", "[]"}) {
    told.clear();
    EXPECT_EQ(ask(service, R"({"proxy":{"loglevel":)" + std::string(level) + "}}"), Texts{});
    EXPECT_EQ(told, Texts{"A log level that is none has been ignored"}) << level;
  }
  EXPECT_EQ(kept, Texts{});
}

TEST_F(ServiceTest, SettingsThatCannotBeKept_StayAsTheyWere) {
  Service service = make();
  keepProblem = "no room";
  EXPECT_EQ(
      ask(service, R"({"proxy":{"command":"writeconfig","cloud_env":"test","auth_ex":0}})"),
      Texts{
          R"({"proxy":{"command":"writeconfig","error_reason":"the settings cannot be kept: no room","result":"error"}})"});
  ask(service, R"({"proxy":{"loglevel":9}})");
  EXPECT_EQ(told, Texts{"The log level stays 3: the settings cannot be kept: no room"});
  const std::string configuration = ask(service, R"({"proxy":{"command":"readconfig"}})").at(0);
  EXPECT_NE(configuration.find(R"("cloud_env":"prod")"), std::string::npos);
  EXPECT_NE(configuration.find(R"("loglevel":3)"), std::string::npos);
}

TEST_F(ServiceTest, WriteConfig_ChangesAndKeeps) {
  Service service = make();
  const Texts done{R"({"proxy":{"command":"writeconfig","result":"success"}})"};
  EXPECT_EQ(ask(service, R"({"proxy":{"command":"writeconfig","cloud_env":"test","auth_ex":0}})"), done);
  EXPECT_EQ(kept, Texts{"3 test off"});
  EXPECT_EQ(ask(service, R"({"proxy":{"command":"writeconfig","cloud_env":"test"}})"), done);
  EXPECT_EQ(
      ask(service, R"({"proxy":{"command":"writeconfig","cloud_env":"prod"}})"),
      Texts{
          R"({"proxy":{"command":"writeconfig","error_reason":"the environment has no certificate but auth-ex","result":"error"}})"});
}

TEST_F(ServiceTest, WithoutMemory_WhatIsKeptAndWhatIsToldStayTheSame) {
  const std::string longest(64, 'x');
  options.environments.push_back({longest, {}});
  JSObject request;
  ASSERT_TRUE(
      JSObject::parse(R"({"proxy":{"command":"writeconfig","cloud_env":")" + longest + R"(","auth_ex":0}})", request));
  int failures = 0;
  for (bool done = false; !done && failures < 1000; ++failures) {
    Service service = make();
    kept = {"3 prod on"};
    noMemory::after(failures);
    try {
      service.take(request, [&done](const JSObject& /*response*/) { done = true; });
    } catch (const std::bad_alloc&) {
      done = false;
    }
    noMemory::after(-1);
    const std::string configuration = ask(service, R"({"proxy":{"command":"readconfig"}})").at(0);
    const bool isNew = configuration.find(R"("cloud_env":")" + longest) != std::string::npos;
    EXPECT_EQ(kept.back(), isNew ? "3 " + longest + " off" : "3 prod on") << failures;
  }
  EXPECT_GT(failures, 3);
}

TEST_F(ServiceTest, Check_IsAnsweredWhenItHasEnded) {
  Service service = make();
  EXPECT_EQ(ask(service, R"({"proxy":{"command":"cloudcheck"}})"), Texts{});
  checks.at(0)({true, 204, "No Content"});
  EXPECT_EQ(
      responses,
      Texts{R"({"proxy":{"command":"cloudcheck","error_code":204,"error_reason":"No Content","result":"success"}})"});
  EXPECT_EQ(ask(service, R"({"proxy":{"command":"cloudcheck"}})"), Texts{});
  checks.at(1)({false, 2, "cannot connect"});
  EXPECT_EQ(
      responses,
      Texts{R"({"proxy":{"command":"cloudcheck","error_code":2,"error_reason":"cannot connect","result":"error"}})"});
  ask(service, R"({"proxy":{"command":"cloudcheck"}})");
  checks.at(2)({true, 200, ""});
  EXPECT_EQ(responses, Texts{R"({"proxy":{"command":"cloudcheck","error_code":200,"result":"success"}})"});
}

TEST_F(ServiceTest, CheckThatCannotBegin_IsAnsweredAtOnce) {
  checksAllowed = 0;
  Service service = make();
  EXPECT_EQ(
      ask(service, R"({"proxy":{"command":"cloudcheck"}})"),
      Texts{R"({"proxy":{"command":"cloudcheck","error_reason":"too many checks are under way","result":"error"}})"});
}

}  // namespace
}  // namespace cloudproxyd
