#include "platform/linux/jxapp/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "tests/unit/platform/jxapp/scratch.h"
#include "tests/unit/platform/jxapp/system_calls.h"

namespace {

using base::Descriptor;
using jxinstall::listDirectory;
using jxinstall::openAt;
using jxinstall::readAt;
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

TEST_F(File, ReadInPieces_GivesWhatStandsAtTheOffset) {
  const Descriptor file(anonymousFile("0123456789"));
  for (const std::size_t piece : {1U, 4U, 100U}) {
    calls_.largestRead = piece;
    calls_.fail("pread", EINTR, "", 1);
    std::string read(20, '-');
    EXPECT_EQ(readAt(file.get(), read.data(), 6, 2), 6);
    EXPECT_EQ(readAt(file.get(), read.data() + 6, 13, 7), 3) << "the end of the file";
    EXPECT_EQ(read, "234567789-----------");
  }
}

TEST_F(File, ReadThatFails_IsMinusOneWhateverCameBefore) {
  const Descriptor file(anonymousFile("0123456789"));
  std::string read(10, '-');
  calls_.largestRead = 4;
  calls_.fail("pread", EIO, "", 1);
  EXPECT_EQ(readAt(file.get(), read.data(), 10, 0), -1);
  EXPECT_EQ(errno, EIO);
}

TEST_F(File, Names_AreSortedByTheirBytes) {
  for (const char* name : {"b", "B", "a", ".hidden", "10", "9"}) root_.write(name, "");
  Names names;
  errno = EIO;  // of something before
  EXPECT_TRUE(listDirectory(folder_.get(), names));
  EXPECT_EQ(names, (Names{".hidden", "10", "9", "B", "a", "b"}));
}

TEST_F(File, FolderThatCannotBeListed_Fails) {
  for (const char* call : {"openat", "fdopendir", "readdir"}) {
    calls_.fail(call, EIO);
    Names names;
    EXPECT_FALSE(listDirectory(folder_.get(), names)) << call;
    EXPECT_EQ(errno, EIO) << call;
  }
}

TEST_F(File, Listing_OpensNothingButAFolder) {
  const Descriptor file(anonymousFile(""));
  Names names;
  EXPECT_FALSE(listDirectory(file.get(), names));
  EXPECT_EQ(errno, ENOTDIR);
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
