#include "platform/linux/jxapp/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "tests/unit/platform/jxapp/scratch.h"
#include "tests/unit/platform/jxapp/system_calls.h"

namespace {

using base::Descriptor;
using jxinstall::openAt;
using jxinstall::removeTree;
using Names = std::vector<std::string>;

class File : public testing::Test {
 protected:
  std::string pathOf(const std::string& name) const { return root_.path() + '/' + name; }

  Scratch root_;
  Descriptor folder_{open(root_.path().c_str(), O_RDONLY | O_DIRECTORY)};
  SystemCalls calls_;
};

TEST_F(File, Open_FollowsNoLinkAndEndsWithTheProgram) {
  root_.write("file", "");
  ASSERT_EQ(symlink("file", pathOf("link").c_str()), 0);
  EXPECT_FALSE(openAt(folder_.get(), "link", O_RDONLY));
  EXPECT_EQ(errno, ELOOP);
  const Descriptor file = openAt(folder_.get(), "file", O_RDONLY);
  EXPECT_EQ(fcntl(file.get(), F_GETFD), FD_CLOEXEC);
}

TEST_F(File, InterruptedOpen_IsTakenUpAgainARefusedOneIsNot) {
  root_.write("file", "");
  calls_.fail("openat", EINTR, "file");
  EXPECT_TRUE(openAt(folder_.get(), "file", O_RDONLY));
  calls_.fail("openat", EIO, "file");
  EXPECT_FALSE(openAt(folder_.get(), "file", O_RDONLY));
  EXPECT_EQ(errno, EIO);
}

TEST_F(File, Tree_IsRemovedWhole) {
  root_.write("tree/deep/file", "");
  root_.write("tree/file", "");
  root_.write("kept", "");
  ASSERT_EQ(symlink("../kept", pathOf("tree/link").c_str()), 0);
  EXPECT_TRUE(removeTree(folder_.get(), "tree"));
  EXPECT_TRUE(removeTree(folder_.get(), "tree")) << "nothing is left";
  EXPECT_EQ(root_.tree(), Names{"kept="});
}

// Some file systems answer EPERM where a folder is to be removed as a file.
TEST_F(File, FolderThatAnswersEperm_IsRemovedAllTheSame) {
  root_.write("tree/file", "");
  calls_.fail("unlinkat", EPERM, "/tree");
  EXPECT_TRUE(removeTree(folder_.get(), "tree"));
  EXPECT_FALSE(root_.exists("tree"));
}

TEST_F(File, WhatCannotBeRemoved_StaysWithTheReason) {
  root_.write("tree/file", "");
  root_.write("file", "");
  struct Case {
    const char* call;
    const char* path;
    int error;
    const char* removed;
  };
  for (const Case& one : {Case{"unlinkat", "/file", EBUSY, "file"}, Case{"unlinkat", "/file", EPERM, "file"},
                          Case{"unlinkat", "/tree", EACCES, "tree"}, Case{"openat", "/tree", EMFILE, "tree"},
                          Case{"readdir", "/tree", EIO, "tree"}, Case{"unlinkat", "tree/file", EBUSY, "tree"}}) {
    calls_.fail(one.call, one.error, one.path);
    EXPECT_FALSE(removeTree(folder_.get(), one.removed)) << one.call << one.path;
    EXPECT_EQ(errno, one.error) << one.call << one.path;
    EXPECT_TRUE(root_.exists(one.removed)) << one.call << one.path;
  }
}

TEST_F(File, FolderThatWillNotGo_IsNoSuccess) {
  root_.write("tree/file", "");
  calls_.fail("unlinkat", EBUSY, "/tree", 1);  // after its content
  EXPECT_FALSE(removeTree(folder_.get(), "tree"));
  EXPECT_EQ(root_.tree(), Names{"tree/"});
}

}  // namespace
