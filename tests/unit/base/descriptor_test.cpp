#include "base/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

#include "tests/unit/base/wrapped_calls.h"

namespace {

using base::Descriptor;

int openNull() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }
bool isOpen(int fd) { return fcntl(fd, F_GETFD) >= 0; }

TEST(Descriptor, None_IsFalse) {
  EXPECT_FALSE(Descriptor());
  EXPECT_FALSE(Descriptor(-1));
  EXPECT_EQ(Descriptor().get(), -1);
  EXPECT_TRUE(Descriptor().close());
}

TEST(Descriptor, End_ClosesAndKeepsErrno) {
  const int fd = openNull();
  {
    const Descriptor owner(fd);
    EXPECT_TRUE(owner);
    EXPECT_EQ(owner.get(), fd);
    errno = EDOM;
    diskCalls().closeError = EIO;
  }
  EXPECT_EQ(errno, EDOM);
  resetDiskCalls();
  EXPECT_FALSE(isOpen(fd));
}

TEST(Descriptor, Release_LeavesItOpen) {
  int fd = -1;
  {
    Descriptor owner(openNull());
    fd = owner.release();
    EXPECT_FALSE(owner);
  }
  ASSERT_TRUE(isOpen(fd));
  const Descriptor again(fd);
}

TEST(Descriptor, Moved_BelongsToTheOther) {
  const int fd = openNull();
  Descriptor from(fd);
  const Descriptor to(std::move(from));
  EXPECT_EQ(to.get(), fd);
  EXPECT_FALSE(from);  // NOLINT(bugprone-use-after-move): what a move leaves is what is tested
}

TEST(Descriptor, Assigned_ClosesWhatItHadAtOnce) {
  const int first = openNull();
  const int second = openNull();
  Descriptor owner(first);
  Descriptor other(second);
  owner = std::move(other);
  EXPECT_FALSE(isOpen(first));
  EXPECT_EQ(owner.get(), second);
  EXPECT_FALSE(other);  // NOLINT(bugprone-use-after-move)
}

TEST(Descriptor, Close_TellsWhatWasLost) {
  const int fd = openNull();
  Descriptor owner(fd);
  diskCalls().closeError = EDQUOT;
  EXPECT_FALSE(owner.close());
  EXPECT_EQ(errno, EDQUOT);
  resetDiskCalls();
  EXPECT_FALSE(owner);
  EXPECT_FALSE(isOpen(fd));
}

TEST(Descriptor, CloseInterrupted_IsClosed) {
  Descriptor owner(openNull());
  diskCalls().closeError = EINTR;
  EXPECT_TRUE(owner.close());
  resetDiskCalls();
}

}  // namespace
