#include "base/atomic_file.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "base/file_io.h"
#include "tests/unit/base/scratch.h"
#include "tests/unit/base/wrapped_calls.h"

namespace {

using base::AtomicFile;
using base::Flush;
using testing::ElementsAre;

class AtomicFileTest : public testing::Test {
 protected:
  AtomicFileTest() { resetDiskCalls(); }
  ~AtomicFileTest() override { resetDiskCalls(); }

  Scratch folder_;
};

TEST_F(AtomicFileTest, UntilCommitted_TheOldContentStands) {
  folder_.put("state", "old");
  AtomicFile file(folder_ / "state");
  ASSERT_TRUE(file);
  ASSERT_TRUE(base::writeAll(file.fd(), "new"));
  EXPECT_EQ(folder_.content("state"), "old");
  EXPECT_TRUE(file.commit(Flush::kNo));
  EXPECT_EQ(folder_.content("state"), "new");
  EXPECT_THAT(folder_.names(), ElementsAre("state"));
}

TEST_F(AtomicFileTest, NotCommitted_LeavesNothing) {
  { const AtomicFile file(folder_ / "state"); }
  EXPECT_THAT(folder_.names(), ElementsAre());
}

TEST_F(AtomicFileTest, Flushed_IsOnTheDiskBeforeItHasItsName) {
  AtomicFile file(folder_ / "state");
  ASSERT_TRUE(file.commit(Flush::kYes));
  EXPECT_THAT(diskCalls().seen, ElementsAre("fsync file", "rename"));
}

TEST_F(AtomicFileTest, NotFlushed_DoesNotWaitForTheDisk) {
  AtomicFile file(folder_ / "state");
  ASSERT_TRUE(file.commit(Flush::kNo));
  EXPECT_THAT(diskCalls().seen, ElementsAre("rename"));
}

TEST_F(AtomicFileTest, FlushThatFails_KeepsTheOldContent) {
  folder_.put("state", "old");
  diskCalls().interrupts = {EIO};
  EXPECT_FALSE(base::replaceFile(folder_ / "state", "", Flush::kYes));
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(folder_.content("state"), "old");
  EXPECT_THAT(folder_.names(), ElementsAre("state"));
}

TEST_F(AtomicFileTest, RenameThatFails_KeepsTheOldContent) {
  folder_.put("state", "old");
  diskCalls().renameError = EROFS;
  EXPECT_FALSE(base::replaceFile(folder_ / "state", "new", Flush::kNo));
  EXPECT_EQ(errno, EROFS);
  EXPECT_EQ(folder_.content("state"), "old");
  EXPECT_THAT(folder_.names(), ElementsAre("state"));
}

TEST_F(AtomicFileTest, WriteThatFails_KeepsTheOldContent) {
  folder_.put("state", "old");
  diskCalls().interrupts = {ENOSPC};
  EXPECT_FALSE(base::replaceFile(folder_ / "state", "new", Flush::kNo));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(folder_.content("state"), "old");
  EXPECT_THAT(folder_.names(), ElementsAre("state"));
}

TEST_F(AtomicFileTest, CloseThatFails_KeepsTheOldContent) {
  folder_.put("state", "old");
  diskCalls().closeError = EDQUOT;
  EXPECT_FALSE(base::replaceFile(folder_ / "state", "new", Flush::kNo));
  EXPECT_EQ(errno, EDQUOT);
  resetDiskCalls();
  EXPECT_EQ(folder_.content("state"), "old");
  EXPECT_THAT(folder_.names(), ElementsAre("state"));
}

TEST_F(AtomicFileTest, DraftOfAKilledWriter_IsReplaced) {
  folder_.put("state.new", "left behind and longer");
  EXPECT_TRUE(base::replaceFile(folder_ / "state", "fresh", Flush::kNo));
  EXPECT_EQ(folder_.content("state"), "fresh");
}

TEST_F(AtomicFileTest, WhateverHasTheDraftsName_IsRemovedAndNotWrittenTo) {
  const std::string draft = folder_ / "state.mine";
  const auto expectReplaced = [&](int prepared) {
    ASSERT_EQ(prepared, 0);
    EXPECT_TRUE(base::replaceFile(folder_ / "state", "new", Flush::kNo, ".mine"));
    EXPECT_EQ(folder_.content("state"), "new");
    EXPECT_EQ(folder_.content("victim"), "untouched");
    EXPECT_THAT(folder_.names(), ElementsAre("state", "victim"));
  };
  folder_.put("victim", "untouched");
  expectReplaced(symlink("victim", draft.c_str()));
  expectReplaced(link((folder_ / "victim").c_str(), draft.c_str()));
  expectReplaced(mkfifo(draft.c_str(), 0600));
}

TEST_F(AtomicFileTest, FolderOfTheDraftsName_IsRefused) {
  ASSERT_EQ(mkdir((folder_ / "state.new").c_str(), 0700), 0);
  EXPECT_FALSE(base::replaceFile(folder_ / "state", "new", Flush::kNo));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_THAT(folder_.names(), ElementsAre("state.new"));
}

TEST_F(AtomicFileTest, FolderThatIsNotThere_IsAFalseObject) {
  const AtomicFile file(folder_ / "none/state");
  EXPECT_FALSE(file);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(AtomicFileTest, Mode_IsThatOfTheFileLessTheMask) {
  const mode_t before = umask(027);
  EXPECT_TRUE(base::replaceFile(folder_ / "usual", "", Flush::kNo));
  EXPECT_TRUE(base::replaceFile(folder_ / "own", "", Flush::kNo, ".new", 0604));
  umask(before);
  struct stat usual {};
  struct stat own {};
  ASSERT_EQ(stat((folder_ / "usual").c_str(), &usual) + stat((folder_ / "own").c_str(), &own), 0);
  EXPECT_EQ(usual.st_mode & 07777U, 0640U);
  EXPECT_EQ(own.st_mode & 07777U, 0600U);
}

}  // namespace
