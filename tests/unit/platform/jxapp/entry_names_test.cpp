#include "platform/linux/jxapp/entry_names.h"

#include <gtest/gtest.h>

#include "platform/linux/jxapp/failure.h"

namespace {

using jxinstall::EntryNames;
using jxinstall::Failure;
using jxinstall::nameProblem;

std::string failureOf(EntryNames& names, const std::string& name, bool directory = false) {
  try {
    names.add(name, directory);
    return "";
  } catch (const Failure& failure) {
    return failure.what();
  }
}

TEST(EntryName, OrdinaryNames_HaveNoProblem) {
  for (const char* name : {"a", "bin/hello", ".hidden", "a..b", "...", "a b", "x:y", "~", "a/b/c/d/e/f", "%2e%2e/x"}) {
    EXPECT_EQ(nameProblem(name), "") << name;
  }
  EXPECT_EQ(nameProblem(std::string(255, 'x')), "");
}

TEST(EntryName, WrongNames_AreToldApart) {
  EXPECT_EQ(nameProblem(""), "the name is empty");
  EXPECT_EQ(nameProblem(std::string(256, 'x')), "the name has 256 bytes, at most 255 are allowed");
  EXPECT_EQ(nameProblem("/etc/passwd"), "the name is an absolute path");
  EXPECT_EQ(nameProblem("/"), "the name is an absolute path");
  EXPECT_EQ(nameProblem("a\\b"), "the name has a backslash");
  EXPECT_EQ(nameProblem("..\\x"), "the name has a backslash");
  const std::string notPrintable = "the name has a character that is not printable ASCII";
  EXPECT_EQ(nameProblem(std::string("a\0b", 3)), notPrintable);
  EXPECT_EQ(nameProblem("a\nb"), notPrintable);
  EXPECT_EQ(nameProblem("a\x7f"), notPrintable);
  EXPECT_EQ(nameProblem("caf\xc3\xa9"), notPrintable);
  for (const char* name : {"..", "../x", "a/..", "a/../b", "./../a"}) {
    EXPECT_NE(nameProblem(name).find("the name has the component \"."), std::string::npos) << name;
  }
  for (const char* name : {".", "./a", "a/.", "a/./b"}) {
    EXPECT_EQ(nameProblem(name), "the name has the component \".\"") << name;
  }
  for (const char* name : {"a//b", "a/", "a/b/"}) {
    EXPECT_EQ(nameProblem(name), "the name has an empty component") << name;
  }
}

TEST(EntryNames, FilesAndTheirDirectories_InAnyOrder_AreTaken) {
  EntryNames names;
  EXPECT_EQ(failureOf(names, "a/b"), "");
  EXPECT_EQ(failureOf(names, "a", true), "");
  EXPECT_EQ(failureOf(names, "a/c"), "");
  EXPECT_EQ(failureOf(names, "d", true), "");
  EXPECT_EQ(failureOf(names, "d/e", true), "");
}

TEST(EntryNames, TheSameNameTwice_IsRefused) {
  EntryNames names;
  names.add("a/b", false);
  names.add("d", true);
  EXPECT_EQ(failureOf(names, "a/b"), "\"a/b\": the name is there twice");
  EXPECT_EQ(failureOf(names, "d", true), "\"d\": the name is there twice");
}

TEST(EntryNames, NamesThatDifferInCaseOnly_AreRefused) {
  EntryNames names;
  names.add("Bin/a", false);
  EXPECT_EQ(failureOf(names, "bin/b"), "\"bin\": the name differs from \"Bin\" in case only");
  EXPECT_EQ(failureOf(names, "Bin/A"), "\"Bin/A\": the name differs from \"Bin/a\" in case only");
}

TEST(EntryNames, AFileAsADirectory_IsRefused) {
  EntryNames names;
  names.add("a", false);
  EXPECT_EQ(failureOf(names, "a/b"), "\"a\": the name is a file and a directory");
  EntryNames others;
  others.add("a/b", false);
  EXPECT_EQ(failureOf(others, "a"), "\"a\": the name is a file and a directory");
}

TEST(EntryNames, AWrongName_IsShownWithoutItsControlCharacters) {
  EntryNames names;
  EXPECT_EQ(failureOf(names, "a\n\x1b[31m\"b"), "\"a??[31m?b\": the name has a character that is not printable ASCII");
  EXPECT_EQ(failureOf(names, '/' + std::string(200, 'x')),
            "\"/" + std::string(99, 'x') + "...\": the name is an absolute path");
}

}  // namespace
