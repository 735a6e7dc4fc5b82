#include "platform/linux/support/terminal_settings.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/unit/platform/jxapp/scratch.h"

namespace {

using jxplatform::parseTerminalSettings;
using jxplatform::readTerminalSettings;
using jxplatform::SignaturePolicy;
using jxplatform::TerminalSettings;

void expectNothingKnown(const TerminalSettings& settings) {
  EXPECT_FALSE(settings.serial);
  EXPECT_FALSE(settings.guiVersion);
  EXPECT_FALSE(settings.sponsor.identifier);
  EXPECT_FALSE(settings.sponsor.number);
  EXPECT_FALSE(settings.sponsor.name);
  EXPECT_FALSE(settings.signatures);
}

TEST(TerminalSettings, AllMembers_AreRead) {
  const TerminalSettings settings = parseTerminalSettings(
      R"({"serial":"123-456","gui_version":"2.1","sponsor":{"identifier":"0203200821C5","number":123,"name":"Bank"},)"
      R"("signatures":"required"})");
  EXPECT_EQ(settings.serial, "123-456");
  EXPECT_EQ(settings.guiVersion, "2.1");
  EXPECT_EQ(settings.sponsor.identifier, "0203200821C5");
  EXPECT_EQ(settings.sponsor.number, 123);
  EXPECT_EQ(settings.sponsor.name, "Bank");
  EXPECT_EQ(settings.signatures, SignaturePolicy::kRequired);
  EXPECT_FALSE(settings.signaturesMalformed);
}

TEST(TerminalSettings, ThePolicies_AreThreeWords) {
  EXPECT_EQ(parseTerminalSettings(R"({"signatures":"off"})").signatures, SignaturePolicy::kOff);
  EXPECT_EQ(parseTerminalSettings(R"({"signatures":"warn"})").signatures, SignaturePolicy::kWarn);
  EXPECT_FALSE(parseTerminalSettings("{}").signaturesMalformed);
  for (const char* text : {R"({"signatures":"Warn"})", R"({"signatures":1})", R"({"signatures":null})",
                           R"({"signatures":""})", "", "{", "[]", "null"}) {
    EXPECT_FALSE(parseTerminalSettings(text).signatures) << text;
    EXPECT_TRUE(parseTerminalSettings(text).signaturesMalformed) << text;
  }
}

TEST(TerminalSettings, MembersOfAnotherType_AreNotKnown) {
  expectNothingKnown(parseTerminalSettings(
      R"({"serial":1,"gui_version":null,"sponsor":{"identifier":5,"number":"1","name":[]},"signatures":{}})"));
  expectNothingKnown(parseTerminalSettings(R"({"sponsor":"x"})"));
  expectNothingKnown(parseTerminalSettings(R"({"sponsor":{"number":1.5}})"));
}

TEST(TerminalSettings, Downgrades_AreOneOfThreeWords) {
  using jxplatform::DowngradePolicy;
  EXPECT_EQ(parseTerminalSettings(R"({"downgrades":"allow"})").downgrades, DowngradePolicy::kAllow);
  EXPECT_EQ(parseTerminalSettings(R"({"downgrades":"warn"})").downgrades, DowngradePolicy::kWarn);
  EXPECT_EQ(parseTerminalSettings(R"({"downgrades":"refuse"})").downgrades, DowngradePolicy::kRefuse);
  EXPECT_FALSE(parseTerminalSettings("{}").downgradesMalformed);
  for (const char* text : {R"({"downgrades":"off"})", R"({"downgrades":null})"}) {
    EXPECT_EQ(parseTerminalSettings(text).downgrades, std::nullopt);
    EXPECT_TRUE(parseTerminalSettings(text).downgradesMalformed);
  }
}

TEST(TerminalSettings, CutAnywhere_IsNotKnown) {
  const std::string whole = R"({"serial":"1","sponsor":{"number":1}})";
  for (std::size_t size = 0; size < whole.size(); ++size) {
    expectNothingKnown(parseTerminalSettings(whole.substr(0, size)));
  }
}

TEST(TerminalSettings, ZeroByte_IsNoEndOfTheText) {
  const std::string whole = R"({"serial":"1","signatures":"off"})";
  ASSERT_EQ(parseTerminalSettings(whole).signatures, SignaturePolicy::kOff);
  for (std::size_t at = 0; at <= whole.size(); ++at) {
    const TerminalSettings settings = parseTerminalSettings(std::string(whole).insert(at, 1, '\0'));
    expectNothingKnown(settings);
    EXPECT_TRUE(settings.signaturesMalformed) << at;
    EXPECT_TRUE(settings.downgradesMalformed) << at;
  }
}

TEST(TerminalSettings, AbsentFile_IsNotKnownAndNotMalformed) {
  const Scratch root;
  expectNothingKnown(readTerminalSettings(root.path()));
  EXPECT_FALSE(readTerminalSettings(root.path()).signaturesMalformed);
  EXPECT_FALSE(readTerminalSettings(root.path()).downgradesMalformed);
}

TEST(TerminalSettings, File_IsReadAnewEachTime) {
  const Scratch root;
  root.write("terminal.json", R"({"serial":"1"})");
  EXPECT_EQ(readTerminalSettings(root.path()).serial, "1");
  root.write("terminal.json", R"({"serial":"2"})");
  EXPECT_EQ(readTerminalSettings(root.path()).serial, "2");
}

TEST(TerminalSettings, FileThatCannotBeRead_IsMalformed) {
  const Scratch folder;
  folder.write("terminal.json/x", "");
  const Scratch large;
  large.write("terminal.json", std::string(std::size_t{1024} * 1024 - 1, ' ') + "{}");
  const Scratch fifo;
  ASSERT_EQ(mkfifo((fifo.path() + "/terminal.json").c_str(), 0600), 0);
  const Scratch link;  // to what is not mounted
  ASSERT_EQ(symlink("absent", (link.path() + "/terminal.json").c_str()), 0);
  for (const Scratch* const root : {&folder, &large, &fifo, &link}) {
    expectNothingKnown(readTerminalSettings(root->path()));
    EXPECT_TRUE(readTerminalSettings(root->path()).signaturesMalformed);
    EXPECT_TRUE(readTerminalSettings(root->path()).downgradesMalformed);
  }
}

}  // namespace
