#include "cloudproxy/proxy_settings.h"

#include "tests/unit/cloudproxy/fixture.h"

namespace {

const std::string kNewList =
    R"([{"certs":["auth-ex","jx-basic"],"name":"test"},{"certs":["other","auth-ex"],"name":"prod"}])";

std::string configAnswer(const std::string& members) { return R"({"proxy":{"result":"success",)" + members + "}}"; }

std::string infoAnswer(const std::string& deviceType) {
  return configAnswer(R"("version":"1","auth_ex_support":1,"device_type":")" + deviceType + "\"");
}

class SettingsTest : public CloudProxyTest {
 protected:
  // Reads the settings from this configuration; "failed" or the certificate.
  std::string certOf(const std::string& members) {
    answer("readconfig", configAnswer(members));
    settings = ProxySettings();
    return readProxySettings(settings) == 0 ? settings.cert : "failed";
  }

  // The certificate with this current environment, authentication mode (as members) and new list.
  std::string certIn(const std::string& environment, const std::string& mode, const std::string& list) {
    return certOf(mode + R"("cloud_hostname":"h","cloud_env":")" + environment + R"(","cloud_env_list2":)" + list);
  }

  ProxySettings settings;
};

constexpr const char* kOn = R"("auth_ex":1,)";
constexpr const char* kOff = R"("auth_ex":0,)";
constexpr const char* kUnsupported = "";

TEST_F(SettingsTest, Request_IsReadconfigWithFiveSecondsTime) {
  inOwnProcess([this] {
    EXPECT_NE(readProxySettings(settings), 0);
    EXPECT_EQ(ipc.sent(), Texts{R"({"proxy":{"command":"readconfig"}})"});
    EXPECT_EQ(wrapped::waitsNs(), std::vector<long long>{5000000000});
  });
}

TEST_F(SettingsTest, NewFormat_IsTakenAsItCame) {
  inOwnProcess([this] {
    const std::string list = R"([{"certs":["a"],"extra":{"x":[null]},"name":"prod"},7,"text"])";
    EXPECT_EQ(certIn("prod", kOff, list), "a");
    EXPECT_EQ(settings.cloud_env_list, list);
    EXPECT_EQ(settings.cloud_env, "prod");
    EXPECT_EQ(settings.cloud_hostname, "h");
    EXPECT_EQ(settings.auth_ex_support, '1');
    EXPECT_EQ(ipc.sent().size(), 1U);  // no need for the device's type
  });
}

TEST_F(SettingsTest, AuthExSupport_IsWhetherThereIsAnyMode) {
  inOwnProcess([this] {
    for (const auto& [mode, support] : std::map<std::string, char>{
             {kOn, '1'}, {kOff, '1'}, {kUnsupported, '0'}, {R"("auth_ex":0.0,)", '1'}, {R"("auth_ex":-3,)", '1'}}) {
      EXPECT_NE(certIn("prod", mode, "[]"), "failed");
      EXPECT_EQ(settings.auth_ex_support, support) << mode;
    }
  });
}

TEST_F(SettingsTest, NewFormat_TakesTheFirstCertificateThatFitsTheMode) {
  inOwnProcess([this] {
    EXPECT_EQ(certIn("test", kOn, kNewList), "auth-ex");
    EXPECT_EQ(certIn("test", kOff, kNewList), "jx-basic");
    EXPECT_EQ(certIn("test", kUnsupported, kNewList), "jx-basic");
    EXPECT_EQ(certIn("prod", kOn, kNewList), "auth-ex");
    EXPECT_EQ(certIn("prod", kOff, kNewList), "other");
    EXPECT_EQ(certIn("test", kOff, R"([{"name":"test","certs":["auth-ex","b","c"]}])"), "b");
    EXPECT_EQ(certIn("test", R"("auth_ex":-1.0,)", kNewList), "auth-ex");
    EXPECT_EQ(certIn("test", R"("auth_ex":0.9,)", kNewList), "jx-basic");
  });
}

TEST_F(SettingsTest, NewFormatWithoutAFit_LeavesTheCertificateEmpty) {
  inOwnProcess([this] {
    EXPECT_EQ(certIn("other", kOff, kNewList), "");
    EXPECT_EQ(certIn("test", kOn, R"([{"name":"test","certs":["jx-basic"]}])"), "");
    EXPECT_EQ(certIn("test", kOff, R"([{"name":"test","certs":["auth-ex"]}])"), "");
    EXPECT_EQ(certIn("test", kOff, R"([{"name":"test","certs":[]}])"), "");
    EXPECT_EQ(certIn("test", kOff, R"([{"name":"test","certs":"jx-basic"}])"), "");
    EXPECT_EQ(certIn("test", kOff, R"([{"name":"test"}])"), "");
    EXPECT_EQ(certIn("test", kOff, R"([{"name":["test"],"certs":["jx-basic"]}, 1, null, "test", []])"), "");
    EXPECT_EQ(certIn("test", kOff, "[]"), "");
    EXPECT_EQ(certIn("", kOff, R"([{"certs":["jx-basic"]},{"name":5,"certs":["jx-basic"]}])"), "");
  });
}

TEST_F(SettingsTest, NewFormat_ComparesNamesWhole) {
  inOwnProcess([this] {
    const std::string list =
        R"([{"name":"test","certs":["auth-ex2","auth-ex"]},{"name":"tes","certs":["auth-ex","a"]},)"
        R"({"name":"test2","certs":["auth-ex","b"]},{"name":"Test","certs":["auth-ex","c"]}])";
    EXPECT_EQ(certIn("test", kOff, list), "auth-ex2");
    EXPECT_EQ(certIn("test", kOn, list), "auth-ex");
  });
}

TEST_F(SettingsTest, NewFormat_SkipsCertificatesThatAreNoStrings) {
  inOwnProcess([this] { EXPECT_EQ(certIn("test", kOff, R"([{"name":"test","certs":[null,1,["x"],"b"]}])"), "b"); });
}

TEST_F(SettingsTest, NewFormat_LaterElementOfTheSameNameReplacesTheChoice) {
  inOwnProcess([this] {
    EXPECT_EQ(certIn("test", kOff, R"([{"name":"test","certs":["a"]},{"name":"test","certs":["b"]}])"), "b");
    EXPECT_EQ(certIn("test", kOff, R"([{"name":"test","certs":["a"]},{"name":"test","certs":["auth-ex"]}])"), "a");
    EXPECT_EQ(certIn("test", kOff, R"([{"name":"test","certs":["a"]},{"name":"test","certs":"b"}])"), "a");
  });
}

TEST_F(SettingsTest, BothFormats_TheNewOneCounts) {
  inOwnProcess([this] {
    const std::string common = R"("cloud_env":"prod","cloud_hostname":"h","cloud_env_list":["prod"],)";
    EXPECT_EQ(certOf(common + R"("cloud_env_list2":[{"name":"prod","certs":["new"]}])"), "new");
    EXPECT_EQ(certOf(common + R"("cloud_env_list2":[])"), "");
    EXPECT_EQ(settings.cloud_env_list, "[]");
    answer("info", infoAnswer("prod"));
    EXPECT_EQ(certOf(common + R"("cloud_env_list2":{"name":"prod"})"), "");
    EXPECT_EQ(settings.cloud_env_list, R"([{"certs":[],"name":"prod","prod":true}])");
  });
}

TEST_F(SettingsTest, MissingOrMistypedMembers_Fail) {
  inOwnProcess([this] {
    const std::string environment = R"("cloud_env":"prod")";
    const std::string host = R"("cloud_hostname":"h")";
    const std::string list = R"("cloud_env_list2":[])";
    EXPECT_EQ(certOf(environment + "," + host + "," + list), "");
    for (const std::string& members :
         {host + "," + list, environment + "," + list, environment + "," + host,
          R"("cloud_env":1,)" + host + "," + list, R"("cloud_env":null,)" + host + "," + list,
          environment + R"(,"cloud_hostname":["h"],)" + list, environment + "," + host + R"(,"cloud_env_list2":"[]")",
          environment + "," + host + R"(,"cloud_env_list":{})", environment + "," + host + R"(,"cloud_env_list":null)",
          environment + "," + host + "," + list + R"(,"auth_ex":"1")",
          environment + "," + host + "," + list + R"(,"auth_ex":true)",
          environment + "," + host + "," + list + R"(,"auth_ex":null)"}) {
      EXPECT_EQ(certOf(members), "failed") << members;
    }
  });
}

TEST_F(SettingsTest, Failure_LeavesTheRecord) {
  inOwnProcess([this] {
    settings.cert = "before";
    settings.cloud_env = "before";
    answer("readconfig", configAnswer(R"("cloud_env":"prod","cloud_env_list2":[])"));
    EXPECT_NE(readProxySettings(settings), 0);
    answer("readconfig", R"({"proxy":{"result":"error","cloud_env":"p","cloud_hostname":"h","cloud_env_list2":[]}})");
    EXPECT_NE(readProxySettings(settings), 0);
    EXPECT_EQ(settings.cert + settings.cloud_env, "beforebefore");
  });
}

// The old format

struct OldCase {
  const char* deviceType;  // null: the proxy does not answer
  const char* mode;
  const char* list;
};

class OldFormatTest : public SettingsTest {
 protected:
  std::string listOf(const OldCase& one, const std::string& names = R"(["prod","test"])") {
    if (one.deviceType != nullptr) answer("info", infoAnswer(one.deviceType));
    cert = certOf(one.mode + (R"("cloud_hostname":"h","cloud_env":"prod","cloud_env_list":)" + names));
    return settings.cloud_env_list;
  }

  std::string cert;
};

constexpr const char* kProdBasic =
    R"([{"certs":[],"name":"prod","prod":true},{"certs":["jx-basic"],"name":"test","prod":false}])";
constexpr const char* kProdEx =
    R"([{"certs":["auth-ex"],"name":"prod","prod":true},{"certs":["jx-basic"],"name":"test","prod":false}])";
constexpr const char* kTestEx =
    R"([{"certs":[],"name":"prod","prod":true},{"certs":["auth-ex","jx-basic"],"name":"test","prod":false}])";

TEST_F(OldFormatTest, Certificates_FollowFromModeAndDeviceType) {
  for (const OldCase& one :
       {OldCase{"prod", kOn, kProdEx}, OldCase{"prod", kOff, kProdEx}, OldCase{"dev", kOn, kTestEx},
        OldCase{"dev", kOff, kTestEx}, OldCase{"", kOn, kTestEx}, OldCase{"Prod", kOn, kTestEx},
        OldCase{nullptr, kOn, kTestEx}, OldCase{"prod", kUnsupported, kProdBasic},
        OldCase{"dev", kUnsupported, kProdBasic}, OldCase{nullptr, kUnsupported, kProdBasic}}) {
    inOwnProcess([this, one] {
      EXPECT_EQ(listOf(one), one.list) << (one.deviceType == nullptr ? "none" : one.deviceType) << " " << one.mode;
      EXPECT_EQ(ipc.sent(), (Texts{R"({"proxy":{"command":"readconfig"}})", R"({"proxy":{"command":"info"}})"}));
    });
  }
}

TEST_F(OldFormatTest, ElementsThatAreNoStrings_AreSkipped) {
  inOwnProcess([this] {
    EXPECT_EQ(listOf({"dev", kOff, ""}, R"([1,null,"a",{"name":"prod"},["prod"],""])"),
              R"([{"certs":["auth-ex","jx-basic"],"name":"a","prod":false},)"
              R"({"certs":["auth-ex","jx-basic"],"name":"","prod":false}])");
    EXPECT_EQ(listOf({nullptr, kOff, ""}, "[]"), "[]");
  });
}

TEST_F(OldFormatTest, OnlyProdItself_IsTheProductionEnvironment) {
  inOwnProcess([this] {
    EXPECT_EQ(
        listOf({"prod", kOff, ""}, R"(["Prod","prod2","pro"])"),
        R"([{"certs":["jx-basic"],"name":"Prod","prod":false},{"certs":["jx-basic"],"name":"prod2","prod":false},)"
        R"({"certs":["jx-basic"],"name":"pro","prod":false}])");
    EXPECT_EQ(certOf(R"("cloud_hostname":"h","cloud_env_list":[],"cloud_env":"Prod")"), "jx-basic");
  });
}

TEST_F(OldFormatTest, Cert_FollowsFromModeAndEnvironment) {
  inOwnProcess([this] {
    const std::string prod = R"("cloud_hostname":"h","cloud_env_list":["prod","test"],"cloud_env":"prod")";
    const std::string test = R"("cloud_hostname":"h","cloud_env_list":["prod"],"cloud_env":"test")";
    answer("info", infoAnswer("prod"));
    EXPECT_EQ(certOf(kOn + prod), "auth-ex");
    EXPECT_EQ(certOf(kOn + test), "auth-ex");
    EXPECT_EQ(certOf(kOff + prod), "");
    EXPECT_EQ(certOf(kOff + test), "jx-basic");
    EXPECT_EQ(certOf(prod), "");
    EXPECT_EQ(certOf(test), "jx-basic");
  });
}

}  // namespace
