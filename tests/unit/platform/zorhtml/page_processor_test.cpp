#include "platform/linux/zorhtml/page_processor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zorhtml.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "platform/linux/zorhtml/html_escape.h"

using jxplatform::processPage;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using Vars = std::map<std::string, std::string>;

std::string htmlOf(const std::string& page, Vars vars = {}) { return processPage(page, vars).html; }

std::vector<std::string> problemsOf(const std::string& page, Vars vars = {}) {
  return processPage(page, vars).problems;
}

// A processor that writes down what it was given.
struct Recorder {
  std::vector<std::string> scripts;

  static bool run(void* self, const std::string& script, Vars& vars, std::string& output) {
    static_cast<Recorder*>(self)->scripts.push_back(script);
    vars["seen"] += script + ";";
    output += "[" + script + "]";
    return true;
  }
};

bool failing(void*, const std::string&, Vars&, std::string& output) {
  output += "half of it, then: no such thing";
  return false;
}

bool throwing(void*, const std::string&, Vars&, std::string&) { throw std::runtime_error("thrown"); }

bool replacing(void* registered, const std::string&, Vars&, std::string& output) {
  zorhtml::htmlSetScriptProcessor("rec", nullptr, registered);
  output += "replaced";
  return true;
}

class Pages : public testing::Test {
 protected:
  void SetUp() override { zorhtml::htmlSetScriptProcessor("rec", Recorder::run, &recorder); }
  void TearDown() override { zorhtml::htmlSetScriptProcessor("rec", nullptr, nullptr); }
  Recorder recorder;
};

}  // namespace

TEST_F(Pages, PageWithoutInstructions_StaysAsItIs) {
  const std::string page("<p>a < b ? c > d\0 \xFF</p>\n", 24);
  EXPECT_EQ(htmlOf(page), page);
  EXPECT_EQ(htmlOf(""), "");
}

TEST_F(Pages, Variable_IsInsertedEscaped) {
  EXPECT_EQ(htmlOf("<p><?var name?></p>", {{"name", "<a href=\"x\">Tom & 'Jerry'</a>\n\t"}}),
            "<p>&lt;a href=&quot;x&quot;&gt;Tom &amp; &apos;Jerry&apos;&lt;/a&gt;\n\t</p>");
}

TEST_F(Pages, VariableInAttributeAndComment_CannotLeaveThem) {
  EXPECT_EQ(htmlOf("<i title=\"<?var v?>\"><!-- <?var v?> -->", {{"v", "\"--><script>"}}),
            "<i title=\"&quot;--&gt;&lt;script&gt;\"><!-- &quot;--&gt;&lt;script&gt; -->");
}

TEST_F(Pages, MissingVariable_InsertsNothingAndIsNoProblem) {
  EXPECT_EQ(htmlOf("a<?var nothing?>b"), "ab");
  EXPECT_THAT(problemsOf("a<?var nothing?>b"), IsEmpty());
  EXPECT_EQ(htmlOf("a<?html text?>b"), "ab");
}

TEST_F(Pages, ZeroByteInVariable_BecomesBlank) {
  EXPECT_EQ(htmlOf("<?var v?>", {{"v", std::string("a\0b", 3)}}), "a b");
}

TEST_F(Pages, TextVariableAsHtml_IsInsertedAsItStands) {
  EXPECT_EQ(htmlOf("<?html text?>", {{"text", "<span style='color:#f00'>E</span>"}}),
            "<span style='color:#f00'>E</span>");
  EXPECT_THAT(problemsOf("<?html text?>", {{"text", "<b>"}}), IsEmpty());
}

TEST_F(Pages, OtherVariableAsHtml_IsEscapedAndReported) {
  EXPECT_EQ(htmlOf("<?html name?>", {{"name", "<b>"}}), "&lt;b&gt;");
  EXPECT_THAT(problemsOf("\n\n<?html name?>"), ElementsAre(HasSubstr("line 3: <?html name?>")));
}

TEST_F(Pages, InsertedText_IsNotProcessedAgain) {
  EXPECT_EQ(htmlOf("<?html text?>", {{"text", "<?rec x?><?var v?>"}, {"v", "V"}}), "<?rec x?><?var v?>");
  EXPECT_EQ(htmlOf("<?rec <?var v?>", {{"v", "V"}}), "[<?var v]");
  EXPECT_THAT(recorder.scripts, ElementsAre("<?var v"));
}

TEST_F(Pages, RegisteredProcessor_GetsTextAndInsertsOutput) {
  EXPECT_EQ(htmlOf("1<?rec  a b\n c  ?>2<?rec?>3"), "1[a b\n c]2[]3");
  EXPECT_THAT(recorder.scripts, ElementsAre("a b\n c", ""));
}

TEST_F(Pages, ProcessorsChangesOfVariables_AreSeenByLaterOnesAndTheCaller) {
  Vars vars;
  EXPECT_EQ(processPage("<?var seen?><?rec 1?><?var seen?><?rec 2?>", vars).html, "[1]1;[2]");
  EXPECT_EQ(vars["seen"], "1;2;");
}

TEST_F(Pages, FailingProcessor_InsertsNothingAndIsReportedWithReasonAndLine) {
  zorhtml::htmlSetScriptProcessor("rec", failing, nullptr);
  EXPECT_EQ(htmlOf("a<?rec x?>b"), "ab");
  EXPECT_THAT(problemsOf("a\n<?rec x?>b"),
              ElementsAre(testing::AllOf(HasSubstr("line 2: "), HasSubstr("no such thing"))));
}

TEST_F(Pages, ThrowingProcessor_IsAFailureLikeAnother) {
  zorhtml::htmlSetScriptProcessor("rec", throwing, nullptr);
  EXPECT_EQ(htmlOf("a<?rec x?>b"), "ab");
  EXPECT_THAT(problemsOf("<?rec x?>"), ElementsAre(HasSubstr("thrown")));
}

TEST_F(Pages, ProcessorThatIsReplacedWhileItRuns_EndsInItsOwnTime) {
  zorhtml::htmlSetScriptProcessor("rec", replacing, nullptr);
  EXPECT_EQ(htmlOf("<?rec x?><?rec y?>"), "replaced");
  EXPECT_THAT(problemsOf("<?rec x?>"), ElementsAre(HasSubstr("nothing is registered")));
}

TEST_F(Pages, SecondRegistration_ReplacesTheFirst) {
  Recorder second;
  zorhtml::htmlSetScriptProcessor("rec", Recorder::run, &second);
  htmlOf("<?rec x?>");
  EXPECT_THAT(recorder.scripts, IsEmpty());
  EXPECT_THAT(second.scripts, ElementsAre("x"));
}

TEST_F(Pages, NullNameOrProcessor_IsHarmless) {
  zorhtml::htmlSetScriptProcessor(nullptr, Recorder::run, nullptr);
  zorhtml::htmlSetScriptProcessor("never", nullptr, nullptr);
  EXPECT_EQ(htmlOf("<?never x?>"), "");
}

TEST_F(Pages, BuiltInNames_CannotBeRegistered) {
  zorhtml::htmlSetScriptProcessor("var", Recorder::run, &recorder);
  zorhtml::htmlSetScriptProcessor("html", Recorder::run, &recorder);
  EXPECT_EQ(htmlOf("<?var v?><?html text?>", {{"v", "1"}, {"text", "2"}}), "12");
  zorhtml::htmlSetScriptProcessor("var", nullptr, nullptr);
  zorhtml::htmlSetScriptProcessor("html", nullptr, nullptr);
}

TEST_F(Pages, UnknownInstruction_InsertsNothingAndIsReported) {
  EXPECT_EQ(htmlOf("a<?xml version=\"1.0\"?>b"), "ab");
  EXPECT_THAT(problemsOf("<?xml version=\"1.0\"?>"), ElementsAre(HasSubstr("<?xml")));
  EXPECT_EQ(htmlOf("<?VAR v?>", {{"v", "V"}}), "");  // names keep their case
}

TEST_F(Pages, InstructionWithoutName_InsertsNothingAndIsReported) {
  for (const char* const page : {"a<?"
                                 "?>b",
                                 "a<? var v?>b", "a<?1?>b", "a<?=v?>b", "a<?var=v?>b", "a<?-x y?>b"}) {
    EXPECT_EQ(htmlOf(page, {{"v", "V"}}), "ab") << page;
    EXPECT_THAT(problemsOf(page), ElementsAre(HasSubstr("without a name"))) << page;
  }
}

TEST_F(Pages, InstructionWithoutEnd_EndsThePageAndIsReported) {
  for (const char* const page : {"a\n<?var v", "a\n<?", "a\n<?rec >", "a\n<?rec x ?"}) {
    EXPECT_EQ(htmlOf(page, {{"v", "V"}}), "a\n") << page;
    EXPECT_THAT(problemsOf(page), ElementsAre(HasSubstr("line 2: an instruction without an end"))) << page;
  }
}

TEST_F(Pages, InstructionEnd_IsTheFirstOneEvenInAString) { EXPECT_EQ(htmlOf("<?rec '?>'?>"), "[']'?>"); }

TEST_F(Pages, PageCutAtEveryByte_ShowsWhatStandsWholeBeforeTheCut) {
  const std::string page = "<b><?var v?></b><?rec r?>.";
  const std::size_t varBegin = 3, varEnd = 12, recBegin = 16, recEnd = 25;
  for (std::size_t size = 0; size <= page.size(); ++size) {
    std::string expected = page.substr(0, std::min(size, varBegin));
    if (size == varBegin + 1) expected += "<";
    if (size >= varEnd) expected += "V" + page.substr(varEnd, std::min(size, recBegin) - varEnd);
    if (size == recBegin + 1) expected += "<";
    if (size >= recEnd) expected += "[r]" + page.substr(recEnd, size - recEnd);
    EXPECT_EQ(htmlOf(page.substr(0, size), {{"v", "V"}}), expected) << size;
  }
}

TEST(EscapeHtml, EachByteValue_IsEscapedOrKept) {
  for (int value = 0; value < 256; ++value) {
    const std::string byte(1, static_cast<char>(value));
    std::string expected = byte;
    if (value == '&') expected = "&amp;";
    if (value == '<') expected = "&lt;";
    if (value == '>') expected = "&gt;";
    if (value == '"') expected = "&quot;";
    if (value == '\'') expected = "&apos;";
    if (value == 0) expected = " ";
    EXPECT_EQ(jxplatform::escapeHtml(byte), expected) << value;
  }
}
