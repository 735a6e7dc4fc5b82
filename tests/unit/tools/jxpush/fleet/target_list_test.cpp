#include "tools/jxpush/fleet/target_list.h"

#include <gtest/gtest.h>

#include "tests/unit/tools/jxpush/test_files.h"
#include "tools/jxpush/common/problem.h"

using namespace jxpush;

namespace {

NamedTarget readTarget(const std::string& typed) {
  if (typed == "bad") throw Problem(ExitCode::kUsage, "bad: no terminal");
  return {"http://" + typed, typed, typed, false};
}

class TargetListTest : public testing::Test {
 protected:
  std::vector<NamedTarget> listed(const std::string& text) {
    files_.add("list", text);
    options_.targetsFile = files_.path("list");
    return collectTargets(options_, readTarget);
  }
  // What is said behind the list's name.
  std::string refused(const std::string& text) {
    try {
      listed(text);
    } catch (const Problem& problem) {
      EXPECT_EQ(ExitCode::kUsage, problem.code());
      EXPECT_EQ(0U, std::string(problem.what()).find(options_.targetsFile));
      return std::string(problem.what()).substr(options_.targetsFile.size());
    }
    return "taken";
  }

  TestFiles files_;
  Options options_;
};

}  // namespace

TEST_F(TargetListTest, Lines_AreTargetsWithNames) {
  options_.targets = {"first"};
  const std::vector<NamedTarget> targets =
      listed("# all of them\n\n  a \t till 7, hall  # left\r\nb\nc#1 no comment#2\n\t# indented\nd");
  ASSERT_EQ(5U, targets.size());
  EXPECT_EQ("first", targets[0].name);
  EXPECT_EQ("http://a", targets[1].address);
  EXPECT_EQ("till 7, hall", targets[1].name);
  EXPECT_EQ("b", targets[2].name);
  EXPECT_EQ("http://c#1", targets[3].address);
  EXPECT_EQ("no comment#2", targets[3].name);
  EXPECT_EQ("d", targets[4].name);
}

TEST_F(TargetListTest, WrongLine_IsRefusedWithItsNumber) {
  EXPECT_EQ(":3: bad: no terminal", refused("a\n# x\nbad till\n"));
  EXPECT_EQ(":1: this is no list of targets", refused(std::string(1001, 'x')));
  EXPECT_EQ(":2: this is no list of targets", refused(std::string("a\nb\0c", 5)));
  EXPECT_EQ(": has no target", refused("# nobody\n"));
}

TEST_F(TargetListTest, SameTerminalTwice_IsRefused) {
  const std::string list = files_.path("list");
  EXPECT_EQ(":3: a: the same terminal as in \"" + list + ":1: a\"", refused("a one\nb\na two\n"));
  options_.targets = {"a"};
  EXPECT_EQ(":1: a: the same terminal as in \"--to a\"", refused("a\n"));
}

TEST_F(TargetListTest, ListThatCannotBeRead_IsAnInputError) {
  for (const std::string& path : {files_.path("absent"), files_.path("")}) {
    options_.targetsFile = path;
    try {
      static_cast<void>(collectTargets(options_, readTarget));
      ADD_FAILURE() << path;
    } catch (const Problem& problem) {
      EXPECT_EQ(ExitCode::kInput, problem.code()) << problem.what();
    }
  }
}
