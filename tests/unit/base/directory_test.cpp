#include "base/directory.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "base/descriptor.h"
#include "tests/unit/base/scratch.h"
#include "tests/unit/base/wrapped_calls.h"

namespace {

using base::Descriptor;
using base::listDirectory;
using Names = std::vector<std::string>;

class DirectoryTest : public testing::Test {
 protected:
  DirectoryTest() { resetDiskCalls(); }
  ~DirectoryTest() override { resetDiskCalls(); }

  Scratch scratch_;
  Descriptor folder_{open((scratch_ / "").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
};

TEST_F(DirectoryTest, Names_AreSortedByTheirBytes) {
  for (const char* name : {"b", "B", "a", ".hidden", "10", "9"}) scratch_.put(name, "");
  for (int again = 0; again < 2; ++again) {
    Names names;
    errno = EIO;  // of something before
    EXPECT_TRUE(listDirectory(folder_.get(), names));
    EXPECT_EQ(names, (Names{".hidden", "10", "9", "B", "a", "b"}));
  }
  Names names;
  EXPECT_TRUE(listDirectory(scratch_ / "", names));
  EXPECT_EQ(names.size(), 6U);
}

TEST_F(DirectoryTest, FolderThatCannotBeListed_Fails) {
  for (int DiskCalls::*error : {&DiskCalls::folderError, &DiskCalls::listingError}) {
    resetDiskCalls();
    diskCalls().*error = EIO;
    Names names;
    EXPECT_FALSE(listDirectory(folder_.get(), names));
    EXPECT_EQ(errno, EIO);
  }
}

TEST_F(DirectoryTest, NothingButAFolder_IsListed) {
  scratch_.put("file", "");
  const Descriptor file(open((scratch_ / "file").c_str(), O_RDONLY | O_CLOEXEC));
  Names names;
  EXPECT_FALSE(listDirectory(file.get(), names));
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_FALSE(listDirectory(scratch_ / "file", names));
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_FALSE(listDirectory(scratch_ / "none", names));
  EXPECT_EQ(errno, ENOENT);
}

}  // namespace
