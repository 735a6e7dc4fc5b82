#include "tools/jxpush/output/install_log.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/pty_pair.h"
#include "tests/unit/tools/jxpush/test_files.h"

using namespace jxpush;
using Kind = LogLine::Kind;

namespace {

class ComplaintTest : public testing::Test {
 protected:
  ComplaintTest() {
    for (const char* name : {"a.zip", "b.zip"}) {
      files_.add(name, name);
      opened_.emplace_back(files_.path(name));
      opened_.back().readDigest();
    }
  }

  LogLine package(int number, int file) const {
    return {Kind::Plain, "Package upload-" + std::to_string(number) + ".zip: 5 bytes, sha256 " +
                             opened_[static_cast<std::size_t>(file)].sha256()};
  }
  std::string complaint(const std::vector<LogLine>& log) const { return complaintOf(opened_, log); }

  TestFiles files_;
  std::vector<InputFile> opened_;
};

const std::vector<LogLine> kOneOfEach = {{Kind::Plain, "Installed \x1b[2Jx"},
                                         {Kind::Warning, "Warning: y"},
                                         {Kind::Error, "Error: z"},
                                         {Kind::List, "List of installed applications:"}};

std::string printed(const std::vector<LogLine>& log) {
  std::FILE* const stream = std::tmpfile();
  printLog(log, {"a.zip", "b\x1b.zip"}, stream);
  std::string text(static_cast<std::size_t>(std::ftell(stream)), '\0');
  std::rewind(stream);
  EXPECT_EQ(text.size(), std::fread(text.data(), 1, text.size(), stream));
  std::fclose(stream);
  return text;
}

}  // namespace

TEST_F(ComplaintTest, AllFilesShown_IsNone) { EXPECT_EQ("", complaint({package(0, 0), package(1, 1)})); }

TEST_F(ComplaintTest, LogThatTellsNoArchives_IsNone) {
  EXPECT_EQ("", complaint({}));
  EXPECT_EQ("", complaint({{Kind::Plain, "done"}, {Kind::Warning, "Warning: x"}}));
}

TEST_F(ComplaintTest, ErrorLine_IsOne) {
  EXPECT_EQ("the terminal's installer reported an error",
            complaint({package(0, 0), package(1, 1), {Kind::Error, "Error: x"}}));
}

TEST_F(ComplaintTest, MissingFile_IsNamed) {
  EXPECT_EQ("the terminal's log does not show " + files_.path("b.zip") + " as it was sent", complaint({package(0, 0)}));
}

TEST_F(ComplaintTest, FilesOfSomebodyElse_AreNoticed) {
  EXPECT_EQ("the terminal's log does not show " + files_.path("a.zip") + " as it was sent",
            complaint({package(0, 1), package(1, 0)}));
}

TEST(CountOf, CountsOneKind) {
  const std::vector<LogLine> log = {{Kind::Error, "a"}, {Kind::Plain, "b"}, {Kind::Error, "c"}};
  EXPECT_EQ(2U, countOf(log, Kind::Error));
  EXPECT_EQ(0U, countOf(log, Kind::Warning));
}

TEST(PrintLog, Lines_AreMarkedAndHarmless) {
  EXPECT_EQ("   Installed ?[2Jx\n ! Warning: y\n!! Error: z\n   List of installed applications:\n",
            printed(kOneOfEach));
}

TEST(PrintLog, LinesOnATerminal_HaveColoursUnlessTheseAreUnwanted) {
  const PtyPair terminal;
  std::FILE* const stream = std::fopen(terminal.path().c_str(), "w");
  ASSERT_NE(nullptr, stream);
  unsetenv("NO_COLOR");
  printLog(kOneOfEach, {}, stream);
  const std::string coloured =
      "   Installed ?[2Jx\n\033[33m ! Warning: y\033[0m\n\033[31m!! Error: z\033[0m\n"
      "\033[32m   List of installed applications:\033[0m\n";
  EXPECT_EQ(coloured, terminal.receive(coloured.size()));
  setenv("NO_COLOR", "", 1);
  printLog({{Kind::Error, "Error: z"}}, {}, stream);
  EXPECT_EQ("!! Error: z\n", terminal.receive(12));
  unsetenv("NO_COLOR");
  std::fclose(stream);
}

TEST(KindWord, Kinds_AreToldApart) {
  EXPECT_STREQ("error", kindWord(Kind::Error));
  EXPECT_STREQ("warning", kindWord(Kind::Warning));
  EXPECT_STREQ("list", kindWord(Kind::List));
  EXPECT_STREQ("text", kindWord(Kind::Plain));
}

TEST(PrintLog, Archives_HaveTheNamesOfTheirFiles) {
  EXPECT_EQ("   Package a.zip: 7 bytes\n!! Error: b?.zip: no\n   upload-2.zip upload-.zip upload-0.zi\n",
            printed({{Kind::Plain, "Package upload-0.zip: 7 bytes"},
                     {Kind::Error, "Error: upload-1.zip: no"},
                     {Kind::Plain, "upload-2.zip upload-.zip upload-0.zi"}}));
}

TEST_F(ComplaintTest, Verdict_IsThatOfTheLinesOfTheFile) {
  using Verdicts = std::vector<Verdict>;
  const LogLine list{Kind::List, "List of installed applications:"};
  EXPECT_EQ((Verdicts{Verdict::kInstalled, Verdict::kRefused}),
            verdictsOf(opened_,
                       {package(0, 0), {Kind::Plain, "Installed a"}, package(1, 1), {Kind::Error, "Error: x"}, list}));
  EXPECT_EQ((Verdicts{Verdict::kRefused, Verdict::kInstalled}),
            verdictsOf(opened_, {package(0, 0), package(1, 1), list, {Kind::Error, "Error: upload-0.zip: x"}}));
  EXPECT_EQ((Verdicts{Verdict::kUnknown, Verdict::kUnknown}), verdictsOf(opened_, {package(0, 1), list}));
  EXPECT_EQ((Verdicts{Verdict::kUnknown, Verdict::kUnknown}), verdictsOf(opened_, {{Kind::Plain, "Installed a"}}));
}

TEST(InstalledOf, TellsTheEntriesOfTheList) {
  const LogLine head{Kind::List, "List of installed applications:"};
  EXPECT_EQ((std::vector<std::string>{"a 1", "b 2"}),
            installedOf({{Kind::Plain, "  x"}, head, {Kind::List, "  a 1"}, {Kind::List, "  b 2"}}));
  EXPECT_TRUE(installedOf({head, {Kind::List, "  (none)"}}).empty());
}
