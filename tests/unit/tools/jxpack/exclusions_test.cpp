#include "tools/jxpack/exclusions.h"

#include <gtest/gtest.h>

#include "tools/jxpack/problem.h"

namespace {

using jxpack::Exclusions;

struct Case {
  std::vector<std::string> patterns;
  std::string path;  // a folder's with a slash at its end
  std::string reason;
};

class ExclusionsOf : public testing::TestWithParam<Case> {};

TEST_P(ExclusionsOf, APath_AreDecidedByTheLastPatternThatFits) {
  Exclusions exclusions;
  for (const std::string& pattern : GetParam().patterns) exclusions.add(pattern, "x");
  std::string path = GetParam().path;
  const bool folder = path.back() == '/';
  if (folder) path.pop_back();
  EXPECT_EQ(exclusions.reasonFor(path, folder), GetParam().reason) << GetParam().path;
}

const Case kCases[] = {
    {{}, "bin/hello", ""},
    {{}, ".git/", "version control"},
    {{}, "lib/.git", "version control"},
    {{}, "deep/.svn/", "version control"},
    {{}, ".hg/", "version control"},
    {{}, "a~", "an editor's backup"},
    {{}, "bin/.run.swp", "an editor's backup"},
    {{}, "bin/.#run", "an editor's backup"},
    {{}, "bin/.DS_Store", "a desktop's file"},
    {{}, "jxpackage.json", "jxpack's own file"},
    {{}, "data/jxpackage.json", ""},
    {{}, "data/.jxignore", ""},
    {{"*.o"}, "a.o", "x: *.o"},
    {{"*.o"}, "deep/er/a.o", "x: *.o"},
    {{"*.o"}, "a.out", ""},
    {{"doc"}, "doc", "x: doc"},
    {{"doc/"}, "doc", ""},
    {{"doc/"}, "src/doc/", "x: doc/"},
    {{"/doc"}, "doc", "x: /doc"},
    {{"/doc"}, "src/doc", ""},
    {{"src/*.c"}, "src/a.c", "x: src/*.c"},
    {{"src/*.c"}, "src/sub/a.c", ""},
    {{"src/*.c"}, "sub/src/a.c", ""},
    {{"[ab]?"}, "b1", "x: [ab]?"},
    {{"*.o", "!keep.o"}, "keep.o", ""},
    {{"!keep.o", "*.o"}, "keep.o", "x: *.o"},
    {{"!.gitignore"}, "sub/.gitignore", ""},
};
INSTANTIATE_TEST_SUITE_P(Paths, ExclusionsOf, testing::ValuesIn(kCases));

TEST(Exclusions, LinesOfAFile_AreItsPatterns) {
  Exclusions exclusions;
  exclusions.addLines("# comment\n\n*.o \r\nlast");
  EXPECT_EQ(exclusions.reasonFor("a.o", false), ".jxignore: *.o");
  EXPECT_EQ(exclusions.reasonFor("last", false), ".jxignore: last");
  EXPECT_EQ(exclusions.reasonFor("# comment", false), "");
}

TEST(Exclusions, PatternsThatMeanNothingHere_AreRefused) {
  for (const char* pattern : {"", "!", "/", "!/"}) {
    try {
      Exclusions().add(pattern, "--exclude");
      ADD_FAILURE() << pattern;
    } catch (const jxpack::Problem& problem) {
      EXPECT_EQ(problem.code(), jxpack::ExitCode::kUsage);
      EXPECT_STREQ(problem.what(), ("--exclude: the pattern \"" + std::string(pattern) + "\" is empty").c_str());
    }
  }
  EXPECT_THROW(Exclusions().add("a/**/b", "--exclude"), jxpack::Problem);
}

}  // namespace
