#include "platform/linux/services/cloudproxyd/settings.h"

#include <gmock/gmock.h>

#include "platform/linux/support/failure.h"

namespace cloudproxyd {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const Environments kAll{{"both", {"jx-basic", "auth-ex"}}, {"basic", {"jx-basic"}}, {"ex", {"auth-ex"}}, {"none", {}}};

TEST(UsualEnvironments, ProductionDevice_HasItsCertificateForProduction) {
  const Environments environments = usualEnvironments("prod");
  ASSERT_EQ(environments.size(), 2U);
  EXPECT_EQ(environments[0].name, "prod");
  EXPECT_THAT(environments[0].certificates, ElementsAre("auth-ex"));
  EXPECT_EQ(environments[1].name, "test");
  EXPECT_THAT(environments[1].certificates, ElementsAre("jx-basic"));
}

TEST(UsualEnvironments, AnyOtherDevice_HasItForTheOthers) {
  for (const char* const type : {"dev", "", "Prod"}) {
    const Environments environments = usualEnvironments(type);
    EXPECT_THAT(environments.at(0).certificates, IsEmpty());
    EXPECT_THAT(environments.at(1).certificates, ElementsAre("auth-ex", "jx-basic"));
  }
}

TEST(FindEnvironment, Name_IsFoundExactly) {
  EXPECT_EQ(findEnvironment(kAll, "basic"), &kAll[1]);
  EXPECT_EQ(findEnvironment(kAll, "Basic"), nullptr);
  EXPECT_EQ(findEnvironment(kAll, ""), nullptr);
  EXPECT_EQ(findEnvironment({}, "basic"), nullptr);
}

TEST(SupportsAuthEx, AnyEnvironment_IsEnough) {
  EXPECT_TRUE(supportsAuthEx(kAll));
  EXPECT_FALSE(supportsAuthEx({{"a", {"jx-basic"}}, {"b", {}}}));
  EXPECT_FALSE(supportsAuthEx({}));
}

TEST(CheckSettings, ModeAndCertificates_MustFit) {
  const auto problem = [](const char* environment, bool authEx) -> std::string {
    try {
      checkSettings({1, environment, authEx}, kAll);
      return "";
    } catch (const jxplatform::Failure& failure) {
      return failure.what();
    }
  };
  EXPECT_EQ(problem("both", true), "");
  EXPECT_EQ(problem("both", false), "");
  EXPECT_EQ(problem("basic", false), "");
  EXPECT_EQ(problem("ex", true), "");
  EXPECT_EQ(problem("none", false), "");
  EXPECT_EQ(problem("basic", true), "the environment has no certificate auth-ex");
  EXPECT_EQ(problem("none", true), "the environment has no certificate auth-ex");
  EXPECT_EQ(problem("ex", false), "the environment has no certificate but auth-ex");
  EXPECT_EQ(problem("other", false), "unknown environment");
}

TEST(InitialSettings, FirstEnvironment_IsPossible) {
  for (const Environment& environment : kAll) {
    const Settings settings = initialSettings({environment, kAll[0]});
    EXPECT_EQ(settings.environment, environment.name);
    EXPECT_EQ(settings.authEx, environment.name == "ex");
    EXPECT_EQ(settings.logLevel, 3);
    EXPECT_NO_THROW(checkSettings(settings, {environment}));
  }
  EXPECT_EQ(initialSettings({}).environment, "");
}

}  // namespace
}  // namespace cloudproxyd
