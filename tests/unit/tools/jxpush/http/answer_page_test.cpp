#include "tools/jxpush/http/answer_page.h"

#include <gtest/gtest.h>

#include "upload/upload_pages.h"

using namespace jxpush;
using Kind = LogLine::Kind;

namespace {

// Which bytes they are, the upload server's tests say.
const std::string kBegin = kUploadResultBegin;
const std::string kEnd = kUploadResultEnd;
const std::string kStored = kUploadSuccessful;
const std::string kRed = "<span style='color:#f00'>";
const std::string kGreen = "<span style='color:#0a0'>";

std::optional<AnswerPage> parseLog(const std::string& log) { return parseAnswerPage(kBegin + kStored + log + kEnd); }

std::vector<LogLine> linesOf(const std::string& log) {
  const auto page = parseLog(log);
  EXPECT_TRUE(page) << log;
  return page ? page->log : std::vector<LogLine>();
}

std::string describe(const std::vector<LogLine>& lines) {
  std::string text;
  for (const LogLine& line : lines) text += std::to_string(static_cast<int>(line.kind)) + " " + line.text + "\n";
  return text;
}

void expectLines(const std::string& log, const std::vector<LogLine>& lines) {
  EXPECT_EQ(describe(lines), describe(linesOf(log))) << log;
}

}  // namespace

TEST(AnswerPage, UploadFailed_HasNoLog) {
  const auto page = parseAnswerPage(kBegin + kUploadFailed + kEnd);
  ASSERT_TRUE(page);
  EXPECT_FALSE(page->stored);
  EXPECT_TRUE(page->log.empty());
}

TEST(AnswerPage, UploadSuccessfulWithoutALog_IsStored) {
  const auto page = parseLog("");
  ASSERT_TRUE(page);
  EXPECT_TRUE(page->stored);
  EXPECT_TRUE(page->log.empty());
}

TEST(AnswerPage, WholeLog_IsPlainText) {
  expectLines("Package upload-0.zip: 7 bytes<br>" + kRed + "Warning: hello 1.0.0 is not signed<br></span>" +
                  "Installed hello 1.0.0<br>" + kRed + "Error: upload-1.zip: is not a zip archive<br></span>" + kGreen +
                  "List of installed applications:<br>  hello 1.0.0<br></span>",
              {{Kind::Plain, "Package upload-0.zip: 7 bytes"},
               {Kind::Warning, "Warning: hello 1.0.0 is not signed"},
               {Kind::Plain, "Installed hello 1.0.0"},
               {Kind::Error, "Error: upload-1.zip: is not a zip archive"},
               {Kind::List, "List of installed applications:"},
               {Kind::List, "  hello 1.0.0"}});
}

TEST(AnswerPage, Entities_AreDecodedOnce) {
  expectLines("&amp;&lt;&gt;&quot;&apos;&amp;lt;&amp;amp;<br>", {{Kind::Plain, "&<>\"'&lt;&amp;"}});
}

TEST(AnswerPage, MarkupInAName_StaysText) {
  expectLines("Installed &lt;/span&gt;&lt;br&gt;<br>", {{Kind::Plain, "Installed </span><br>"}});
}

TEST(AnswerPage, MessagesWithoutALineEnd_JoinUnlessMarked) {
  expectLines("one two", {{Kind::Plain, "one two"}});
  expectLines("one" + kRed + "Error: two</span>three",
              {{Kind::Plain, "one"}, {Kind::Error, "Error: two"}, {Kind::Plain, "three"}});
}

TEST(AnswerPage, FurtherLinesOfAMark_AreOfItsKind) {
  expectLines(kRed + "Error: one<br>two<br>Warning: three</span>",
              {{Kind::Error, "Error: one"}, {Kind::Error, "two"}, {Kind::Error, "Warning: three"}});
}

TEST(AnswerPage, UnmarkedLineThatBeginsAsAnError_IsOne) {
  expectLines("first<br>Error: second<br>Warning: third<br>",
              {{Kind::Plain, "first"}, {Kind::Error, "Error: second"}, {Kind::Warning, "Warning: third"}});
}

TEST(AnswerPage, ErrorInTheMiddleOfALine_IsNone) {
  expectLines("no Error: here<br>error: nor here<br>",
              {{Kind::Plain, "no Error: here"}, {Kind::Plain, "error: nor here"}});
}

TEST(AnswerPage, EmptyLines_AreKept) {
  expectLines("<br><br>a<br>", {{Kind::Plain, ""}, {Kind::Plain, ""}, {Kind::Plain, "a"}});
}

TEST(AnswerPage, OtherBytes_PassUnchanged) {
  const std::string text = "\x01\x1b[31m \xC3\x96 \xFF =/;#";
  expectLines(text + "<br>", {{Kind::Plain, text}});
}

TEST(AnswerPage, EveryTruncation_IsNoPage) {
  const std::string log =
      "a &amp; b<br>" + kRed + "Error: c<br></span>" + kGreen + "List of installed applications:<br></span>";
  const std::string page = kBegin + kStored + log + kEnd;
  ASSERT_TRUE(parseAnswerPage(page));
  for (std::size_t size = 0; size < page.size(); ++size) {
    EXPECT_FALSE(parseAnswerPage(page.substr(0, size))) << size;
    EXPECT_FALSE(parseAnswerPage(page.substr(page.size() - size))) << size;
  }
}

TEST(AnswerPage, EveryMissingByteOfTheFrame_IsNoPage) {
  for (const std::string& verdict : {kStored, std::string("Upload failed<br>\n")}) {
    const std::string page = kBegin + verdict + kEnd;
    for (std::size_t at = 0; at < page.size(); ++at) {
      EXPECT_FALSE(parseAnswerPage(std::string(page).erase(at, 1))) << page[at] << " at " << at;
      std::string changed = page;
      changed[at] = static_cast<char>(changed[at] ^ 1);
      EXPECT_FALSE(parseAnswerPage(changed)) << changed;
    }
    EXPECT_FALSE(parseAnswerPage(page + "\n"));
    EXPECT_FALSE(parseAnswerPage(" " + page));
  }
}

TEST(AnswerPage, FailureWithALog_IsNoPage) {
  EXPECT_FALSE(parseAnswerPage(kBegin + "Upload failed<br>\nInstalled x<br>" + kEnd));
  EXPECT_FALSE(parseAnswerPage(kBegin + kEnd));
  EXPECT_FALSE(parseAnswerPage(kBegin + "Upload failed<br>\n" + kStored + kEnd));
}

TEST(AnswerPage, WhatTheTerminalDoesNotWrite_IsNoPage) {
  for (const std::string& log : {std::string("a\nb"),
                                 std::string("a\rb"),
                                 std::string("a\tb"),
                                 std::string("a\0b", 3),
                                 std::string("a>b"),
                                 std::string("a\"b"),
                                 std::string("a'b"),
                                 std::string("<b>a</b>"),
                                 std::string("<script>"),
                                 std::string("<br/>"),
                                 std::string("<BR>"),
                                 std::string("<br"),
                                 std::string("&nbsp;"),
                                 std::string("&"),
                                 std::string("&amp"),
                                 std::string("&#39;"),
                                 std::string("&AMP;"),
                                 std::string("</span>"),
                                 kRed + "Error: open",
                                 kRed,
                                 kRed + "Error: a<span style='color:#0a0'>List of installed applications</span></span>",
                                 kRed + "</span>",
                                 kRed + "Installed x<br></span>",
                                 kGreen + "Error: x</span>",
                                 kRed + "List of installed applications</span>",
                                 kGreen + "<br></span>",
                                 kRed + "<br>Error: x</span>",
                                 std::string("<span style='color:#00f'>Error: x</span>"),
                                 std::string("<span>Error: x</span>"),
                                 kEnd,
                                 kStored}) {
    EXPECT_FALSE(parseLog(log)) << log;
  }
}

TEST(FormPage, OnlyTheTerminalsOwn_IsOne) {
  const std::string page = kUploadForm;
  EXPECT_TRUE(isFormPage(page));
  EXPECT_FALSE(isFormPage(page + "\n"));
  EXPECT_FALSE(isFormPage(""));
  EXPECT_FALSE(isFormPage("<html>It works!</html>"));
}
