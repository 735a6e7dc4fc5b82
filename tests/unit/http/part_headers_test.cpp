#include "http/part_headers.h"

#include <gtest/gtest.h>

namespace {

using Lines = std::vector<std::string>;

TEST(SplitPartHeaders, LinesEndAtLineFeeds) {
  EXPECT_EQ(splitPartHeaders("A: 1\r\nB: 2\r\n"), (Lines{"A: 1 ", "B: 2 "}));
  EXPECT_EQ(splitPartHeaders("A: 1\nB: 2\r\n"), (Lines{"A: 1", "B: 2 "}));
  EXPECT_EQ(splitPartHeaders("\r\n"), (Lines{" "}));
}

TEST(SplitPartHeaders, FoldedLines_JoinTheOneBefore) {
  EXPECT_EQ(splitPartHeaders("A: 1;\r\n\tb\r\n c\r\nD: 2\r\n"), (Lines{"A: 1; \tb  c ", "D: 2 "}));
}

TEST(SplitPartHeaders, FoldedLineWithoutOneBefore_Stands) {
  EXPECT_EQ(splitPartHeaders(" A: 1\r\nB: 2\r\n"), (Lines{" A: 1 ", "B: 2 "}));
}

TEST(SplitPartHeaders, CarriageReturns_AreBlanks) {
  EXPECT_EQ(splitPartHeaders("A:\r1\r\n\rB: 2\r\n"), (Lines{"A: 1  B: 2 "}));
}

bool isFile(const std::string& line) { return isFileOfField({line}, "upload"); }

TEST(IsFileOfField, NamedFile_IsOne) {
  EXPECT_TRUE(isFile(R"(Content-Disposition: form-data; name="upload"; filename="a.zip")"));
  EXPECT_TRUE(isFile("CONTENT-disposition:form-data;filename=a;name=upload"));
  EXPECT_TRUE(isFile(R"(Content-Disposition: form-data; name="upload"; filename="C:a.zip")"));
  EXPECT_TRUE(isFile(R"(content-disposition: form-data; name="other"; name="upload"; filename="x")"));
  EXPECT_TRUE(isFile(R"(content-disposition: form-data; name="upload"; name="other"; filename="x")"));
}

TEST(IsFileOfField, OthersAreNot) {
  for (const char* line : {
           R"(Content-Disposition: form-data; name="upload")",
           R"(Content-Disposition: form-data; name="upload"; filename="")",
           R"(Content-Disposition: form-data; name="upload"; filename)",
           R"(Content-Disposition: form-data; name="other"; filename="a")",
           R"(Content-Disposition: form-data; name="Upload"; filename="a")",
           R"(Content-Disposition: form-data; name="uploads"; filename="a")",
           R"(Content-Disposition: form-data; Name="upload"; filename="a")",
           R"(Content-Disposition: form-data; filename="a")",
           R"(Content-Disposition: attachment; name="upload"; filename="a")",
           R"(Content-Disposition: Form-Data; name="upload"; filename="a")",
           R"(Content-Disposition: form-data2; name="upload"; filename="a")",
           R"(Content-Disposition: name="upload"; filename="a"; form-data)",
           R"(Content-Disposition :form-data; name="upload"; filename="a")",
           R"( Content-Disposition: form-data; name="upload"; filename="a")",
           R"(X-Content-Disposition: form-data; name="upload"; filename="a")",
           R"(Content-Disposition form-data; name="upload"; filename="a")",
           "Content-Disposition:",
           ":",
           "",
       }) {
    EXPECT_FALSE(isFile(line)) << line;
  }
}

TEST(IsFileOfField, LastFileName_Counts) {
  EXPECT_FALSE(isFile(R"(Content-Disposition: form-data; name="upload"; filename="a"; filename="")"));
  EXPECT_FALSE(isFile(R"(Content-Disposition: form-data; name="upload"; filename="a"; filename)"));
  EXPECT_TRUE(isFile(R"(Content-Disposition: form-data; name="upload"; filename=""; filename="a")"));
}

TEST(IsFileOfField, Lines_AreReadUntilOneMatches) {
  const std::string other = R"(Content-Disposition: form-data; name="other"; filename="a")";
  const std::string file = R"(Content-Disposition: form-data; name="upload"; filename="b")";
  const std::string noFile = R"(Content-Disposition: form-data; name="upload"; filename="")";
  EXPECT_TRUE(isFileOfField({"Content-Type: text/plain", other, file}, "upload"));
  EXPECT_FALSE(isFileOfField({noFile, file}, "upload"));
  EXPECT_FALSE(isFileOfField({}, "upload"));
}

TEST(IsFileOfField, FileNameOfAnEarlierLine_Counts) {
  EXPECT_TRUE(isFileOfField(
      {R"(Content-Disposition: form-data; filename="a")", R"(Content-Disposition: form-data; name="upload")"},
      "upload"));
}

}  // namespace
