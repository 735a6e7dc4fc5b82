#include "shell/information.h"

#include "tests/support/in_child.h"
#include "tests/unit/shell/fixture.h"
#include "tests/unit/shell/records.h"

namespace {

class InformationTest : public ShellTest {
 protected:
  // The variables of the page, shown once.
  std::map<std::string, std::string> shownVars() {
    gui.answer("info.html", -1);
    runInformationPage();
    EXPECT_EQ(gui.shownNames(), Names{"info.html"});
    return gui.shown().at(0).vars;
  }
};

TEST_F(InformationTest, NothingKnown_IsUnknown) {
  terminal.serialResult = -1;
  EXPECT_EQ(shownVars(), (std::map<std::string, std::string>{
                             {"uiVersion", "unknown"}, {"sponsorId", "unknown"}, {"serialNo", "unknown"}}));
}

TEST_F(InformationTest, UiVersion_IsShown) {
  terminal.guiVersion = "4.2 <beta>";
  EXPECT_EQ(shownVars()["uiVersion"], "4.2 <beta>");
}

TEST_F(InformationTest, EmptyUiVersion_IsNoUnknownOne) {
  terminal.guiVersion = "";
  EXPECT_EQ(shownVars()["uiVersion"], "");
}

TEST_F(InformationTest, SerialNumberThatBeginsWithAZeroByte_IsUnknown) {
  terminal.serialNumber = std::string("\0abc", 4);
  EXPECT_EQ(shownVars()["serialNo"], "unknown");
}

TEST_F(InformationTest, SerialNumber_IsShown) {
  terminal.serialNumber = "0123-456";
  EXPECT_EQ(shownVars()["serialNo"], "0123-456");
}

TEST_F(InformationTest, SerialNumber_IsAskedForAsStated) {
  shownVars();
  ASSERT_EQ(terminal.informationQueries.size(), 1U);
  EXPECT_EQ(terminal.informationQueries[0].item, 35);
  EXPECT_EQ(terminal.informationQueries[0].size, 17U);
  EXPECT_EQ(terminal.informationQueries[0].returnedLength, 0U);
  EXPECT_TRUE(terminal.informationQueries[0].bufferCleared);
}

TEST_F(InformationTest, SerialNumberThatFillsTheBuffer_EndsThere) {
  terminal.serialNumber = "12345678901234567890";
  EXPECT_EQ(shownVars()["serialNo"], "12345678901234567");
}

TEST_F(InformationTest, FailedSerialQuery_LeavesNothingOfTheBuffer) {
  terminal.serialNumber = "garbage";
  terminal.serialResult = 1;
  EXPECT_EQ(shownVars()["serialNo"], "unknown");
}

TEST_F(InformationTest, EmptySerialNumber_IsUnknown) { EXPECT_EQ(shownVars()["serialNo"], "unknown"); }

TEST_F(InformationTest, SponsorNumber_IsShownWithoutTheName) {
  terminal.diagnose({0, sponsorRecord("000123", "ACME"), {}});
  const std::string shown = inChild([this] {
    std::string all;
    for (const auto& variable : shownVars()) all += variable.first + "=" + variable.second + ";";
    return all;
  });
  EXPECT_EQ(shown, "serialNo=unknown;sponsorId=000123;uiVersion=unknown;");
}

TEST_F(InformationTest, Page_IsShownUntilItIsLeft) {
  terminal.guiVersion = "1";
  for (const int result : {0, 1, -2, 100}) gui.answer("info.html", result);
  gui.answer("info.html", -1);
  runInformationPage();
  EXPECT_EQ(gui.shownNames(), Names(5, "info.html"));
  EXPECT_EQ(gui.shown().at(0).syncCallback, nullptr);
  EXPECT_EQ(terminal.diagnosticCalls(), 1U);  // the facts are looked up once
  EXPECT_EQ(terminal.informationQueries.size(), 1U);
}

TEST_F(InformationTest, Facts_AreLookedUpInTheirOrder) {
  terminal.guiVersion = "before";
  terminal.onDiagnostic = [this] {
    terminal.guiVersion = "after";
    EXPECT_EQ(terminal.informationQueries.size(), 0U);
  };
  EXPECT_EQ(shownVars()["uiVersion"], "before");
  EXPECT_EQ(terminal.diagnosticCalls(), 1U);
  EXPECT_EQ(terminal.informationQueries.size(), 1U);
}

TEST_F(InformationTest, Variables_AreNotRefreshedBetweenShowings) {
  terminal.guiVersion = "1";
  gui.answer("info.html", [this](auto& vars) {
    terminal.guiVersion = "2";
    vars["uiVersion"] = "the page's";
    return 0;
  });
  gui.answer("info.html", -1);
  runInformationPage();
  EXPECT_EQ(gui.shown().at(1).vars.at("uiVersion"), "the page's");
}

}  // namespace
