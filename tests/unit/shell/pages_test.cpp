#include "shell/pages.h"

#include "tests/unit/shell/fixture.h"

namespace {

using PagesTest = ShellTest;

TEST_F(PagesTest, ShowPage_PassesZeroesVariablesAndName) {
  gui.answer("some.html", 7);
  PageVars vars{{"a", "1"}, {"b", "<2>"}};
  EXPECT_EQ(showPage(vars, "some.html"), 7);
  const ShownPage page = gui.shown().at(0);
  EXPECT_TRUE(page.synchronous);
  EXPECT_TRUE(page.plainNumbers);
  EXPECT_EQ(page.page, "some.html");
  EXPECT_EQ(page.vars, (PageVars{{"a", "1"}, {"b", "<2>"}}));
}

TEST_F(PagesTest, ShowPage_HandsBackWhatThePageChanged) {
  gui.answer("some.html", [](PageVars& vars) {
    vars["kept"] = "new";
    vars["added"] = "x";
    vars.erase("removed");
    return -3;
  });
  PageVars vars{{"kept", "old"}, {"removed", "old"}};
  EXPECT_EQ(showPage(vars, "some.html"), -3);
  EXPECT_EQ(vars["kept"], "new");
  EXPECT_EQ(vars["added"], "x");
  EXPECT_EQ(vars["removed"], "");
}

bool noCallback(void*) { return true; }

TEST_F(PagesTest, SynchronousPages_PassTheirCallback) {
  PageVars vars;
  int data = 0;
  EXPECT_EQ(showPage(vars, "some.html", noCallback, &data), -1);
  EXPECT_EQ(showPlainPage("other.html", noCallback, &data), -1);
  ASSERT_EQ(gui.shownNames(), (Names{"some.html", "other.html"}));
  for (const ShownPage& page : gui.shown()) {
    EXPECT_EQ(page.syncCallback, noCallback);
    EXPECT_EQ(page.data, &data);
  }
}

void noAsyncCallback(void*, int, const zorgui::UICallbackData*) {}

TEST_F(PagesTest, ShowPageAsync_PassesZeroesVariablesAndCallback) {
  int data = 0;
  const PageVars vars{{"text", "wait"}};
  showPageAsync(vars, "wait.html");
  showPageAsync(vars, "download-http.html", noAsyncCallback, &data);
  const auto shown = gui.shown();
  ASSERT_EQ(shown.size(), 2U);
  EXPECT_FALSE(shown[0].synchronous);
  EXPECT_TRUE(shown[0].plainNumbers);
  EXPECT_EQ(shown[0].vars, vars);
  EXPECT_EQ(shown[0].callback, nullptr);
  EXPECT_EQ(shown[0].data, nullptr);
  EXPECT_EQ(shown[1].page, "download-http.html");
  EXPECT_EQ(shown[1].callback, noAsyncCallback);
  EXPECT_EQ(shown[1].data, &data);
}

TEST_F(PagesTest, ShowPlainPage_StartsEmptyEachTime) {
  const auto leaveSomething = [](PageVars& vars) {
    vars["left"] = "over";
    return 2;
  };
  gui.answer("download.html", leaveSomething);
  gui.answer("download.html", leaveSomething);
  EXPECT_EQ(showPlainPage("download.html"), 2);
  EXPECT_EQ(showPlainPage("download.html"), 2);
  const auto shown = gui.shown();
  ASSERT_EQ(shown.size(), 2U);
  EXPECT_TRUE(shown[0].vars.empty());
  EXPECT_TRUE(shown[1].vars.empty());
  EXPECT_TRUE(shown[1].plainNumbers);
}

TEST(FormatText, ClearsThenFormats) {
  std::string text = "left over";
  formatText(text, "%s download failed %d.", "COM1", -1);
  EXPECT_EQ(text, "COM1 download failed -1.");
  formatText(text, "%s", "");
  EXPECT_EQ(text, "");
  formatText(text, "%d", 7);
  EXPECT_EQ(text, "7");
}

TEST(FormatText, TextThatCannotBeFormatted_IsEmpty) {
  std::string text = "left over";
  const std::wstring noCharacter(1, static_cast<wchar_t>(0xD800));
  formatText(text, "<%ls>", noCharacter.c_str());
  EXPECT_EQ(text, "");
}

TEST(FormatText, LongText_IsWhole) {
  const std::string part(100000, 'x');
  std::string text;
  formatText(text, "<%s>", part.c_str());
  EXPECT_EQ(text, "<" + part + ">");
}

TEST(FormatText, OutputAsArgument_IsClearedBeforeItIsRead) {
  std::string text = "inner";
  formatText(text, "[%s]", text.c_str());
  EXPECT_EQ(text, "[]");
}

TEST_F(PagesTest, Heads_AreBoldAndRedOrGreenOnALineOfTheirOwn) {
  EXPECT_EQ(failureHead("Download aborted"), "<span style='color:#f00'><b>Download aborted</b></span><br>");
  EXPECT_EQ(successHead("Download successful"), "<span style='color:#0f0'><b>Download successful</b></span><br>");
  EXPECT_EQ(errorText("No response.<br>"), "<span style='color:#f00'><b>Error:</b></span><br>No response.<br>");
}

TEST_F(PagesTest, ShowResultAndShowError_ShowTheResultPageWithTheirTextBesideTheOtherVariables) {
  PageVars vars{{"text", "old"}, {"a", "1"}};
  showResult(vars, "done<br>");
  showError(vars, "No response.");
  const auto shown = gui.shown();
  ASSERT_EQ(gui.shownNames(), (Names{"result.html", "result.html"}));
  EXPECT_EQ(shown[0].vars, (PageVars{{"a", "1"}, {"text", "done<br>"}}));
  EXPECT_EQ(shown[1].vars, (PageVars{{"a", "1"}, {"text", errorText("No response.")}}));
}

}  // namespace
