#include "tools/jxpush/common/input_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "tests/unit/tools/jxpush/test_files.h"
#include "tools/jxpush/common/problem.h"

using namespace jxpush;

namespace {

std::string problemOf(const std::string& path) {
  try {
    const InputFile file(path);
    return "opened";
  } catch (const Problem& problem) {
    EXPECT_EQ(ExitCode::kInput, problem.code());
    return problem.what();
  }
}

}  // namespace

TEST(InputFile, Digest_IsThatOfTheContent) {
  TestFiles files;
  files.add("empty", "");
  files.add("abc", "abc");
  files.add("large", std::string(1000000, 'a'));
  EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", files.files()[0].sha256());
  EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad", files.files()[1].sha256());
  EXPECT_EQ("cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0", files.files()[2].sha256());
  EXPECT_EQ(1000000U, files.files()[2].size());
  EXPECT_EQ("large", files.files()[2].name());
}

TEST(InputFile, DigestOfALargeFile_IsGivenUpBetweenItsPieces) {
  TestFiles files;
  files.add("large", "");
  ASSERT_EQ(0, truncate(files.path("large").c_str(), 1000000));
  for (const int last : {1, 2, 3, 17}) {  // 16 pieces, and the end
    InputFile file(files.path("large"));
    int asked = 0;
    try {
      file.readDigest([&] { return ++asked == last; });
      ADD_FAILURE() << "read to its end after " << asked;
    } catch (const Problem& problem) {
      EXPECT_EQ(ExitCode::kInterrupted, problem.code());
      EXPECT_STREQ("interrupted before anything was sent", problem.what());
    }
    EXPECT_EQ(last, asked);
    EXPECT_EQ("", file.sha256());
  }
}

TEST(InputFile, WhatIsNoReadableFile_IsAProblemThatNamesIt) {
  TestFiles files;
  ASSERT_EQ(0, mkfifo(files.path("pipe").c_str(), 0600));
  EXPECT_EQ(files.path("absent") + ": No such file or directory", problemOf(files.path("absent")));
  EXPECT_EQ("/tmp: not a regular file", problemOf("/tmp"));
  EXPECT_EQ(files.path("pipe") + ": not a regular file", problemOf(files.path("pipe")));
  EXPECT_EQ(": No such file or directory", problemOf(""));
}

TEST(InputFile, ReadBeyondTheEnd_IsAProblem) {
  TestFiles files;
  files.add("abc", "abc");
  char buffer[4];
  EXPECT_THROW(files.files()[0].read(0, buffer, 4), Problem);
  files.files()[0].read(1, buffer, 2);
  EXPECT_EQ("bc", std::string(buffer, 2));
}

TEST(InputFile, Change_IsNoticed) {
  TestFiles files;
  files.add("abc", "abc");
  EXPECT_NO_THROW(files.files()[0].checkUnchanged());
  std::ofstream(files.path("abc"), std::ios::app) << "d";
  EXPECT_THROW(files.files()[0].checkUnchanged(), Problem);
}
