#include "base/file_io.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>

#include "base/descriptor.h"
#include "tests/unit/base/scratch.h"
#include "tests/unit/base/wrapped_calls.h"

namespace {

using base::Descriptor;
using testing::ElementsAre;

class FileIoTest : public testing::Test {
 protected:
  FileIoTest() { resetDiskCalls(); }
  ~FileIoTest() override { resetDiskCalls(); }

  Scratch folder_;
  Descriptor file_{open((folder_ / "file").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)};
};

TEST_F(FileIoTest, WriteInPiecesAndInterrupted_PutsAllBytes) {
  diskCalls().largestPiece = 3;
  diskCalls().interrupts = {EINTR, EINTR};
  std::size_t written = 99;
  EXPECT_TRUE(base::writeAll(file_.get(), std::string_view("ab\0cdefgh", 9), &written));
  EXPECT_EQ(written, 9U);
  EXPECT_EQ(folder_.content("file"), std::string("ab\0cdefgh", 9));
  EXPECT_EQ(diskCalls().seen.size(), 5U);
}

TEST_F(FileIoTest, WriteOfNothing_CallsNothing) {
  EXPECT_TRUE(base::writeAll(-1, ""));
  EXPECT_THAT(diskCalls().seen, ElementsAre());
}

TEST_F(FileIoTest, WriteThatFails_TellsHowMuchWentOut) {
  const Descriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  std::size_t written = 99;
  EXPECT_FALSE(base::writeAll(full.get(), "abc", &written));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(written, 0U);
}

TEST_F(FileIoTest, ReadInPieces_GivesWhatStandsAtTheOffset) {
  folder_.put("file", "0123456789");
  const Descriptor file(open((folder_ / "file").c_str(), O_RDONLY | O_CLOEXEC));
  for (const std::size_t piece : {1U, 4U, 100U}) {
    diskCalls().largestPiece = piece;
    diskCalls().interrupts = {EINTR};
    std::string read(20, '-');
    EXPECT_EQ(base::readAt(file.get(), read.data(), 6, 2), 6);
    EXPECT_EQ(base::readAt(file.get(), read.data() + 6, 13, 7), 3) << "the end of the file";
    EXPECT_EQ(read, "234567789-----------");
  }
}

TEST_F(FileIoTest, ReadThatFails_IsMinusOneWhateverCameBefore) {
  folder_.put("file", "0123456789");
  const Descriptor file(open((folder_ / "file").c_str(), O_RDONLY | O_CLOEXEC));
  std::string read(10, '-');
  diskCalls().largestPiece = 4;
  diskCalls().interrupts = {0, EIO};
  EXPECT_EQ(base::readAt(file.get(), read.data(), 10, 0), -1);
  EXPECT_EQ(errno, EIO);
}

TEST_F(FileIoTest, FlushInterrupted_IsRepeated) {
  diskCalls().interrupts = {EINTR};
  EXPECT_TRUE(base::syncFile(file_.get()));
  EXPECT_THAT(diskCalls().seen, ElementsAre("fsync file", "fsync file"));
}

TEST_F(FileIoTest, FlushThatFails_SaysWhy) {
  diskCalls().interrupts = {EIO};
  EXPECT_FALSE(base::syncFile(file_.get()));
  EXPECT_EQ(errno, EIO);
}

TEST_F(FileIoTest, FolderOfAPath_IsFlushed) {
  EXPECT_TRUE(base::syncFolderOf(folder_ / "file"));
  EXPECT_TRUE(base::syncFolderOf("name-alone"));
  EXPECT_TRUE(base::syncFolderOf("/name-in-the-root"));
  EXPECT_THAT(diskCalls().seen, ElementsAre("fsync folder", "fsync folder", "fsync folder"));
}

TEST_F(FileIoTest, FolderThatIsNotThere_SaysSo) {
  EXPECT_FALSE(base::syncFolderOf(folder_ / "none/file"));
  EXPECT_EQ(errno, ENOENT);
}

TEST(ErrorText, IsTheSystemsMessage) { EXPECT_EQ(base::errorText(ENOENT), "No such file or directory"); }

}  // namespace
