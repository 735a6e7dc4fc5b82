#include "base/regular_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "base/file_io.h"
#include "tests/unit/base/scratch.h"

namespace {

constexpr std::size_t kMaxBytes = 20000;

class RegularFileTest : public testing::Test {
 protected:
  // The content, or the error.
  static std::string read(const std::string& path) {
    std::string content = "before";
    if (base::readRegularFile(path, kMaxBytes, content)) return content;
    const int error = errno;
    EXPECT_EQ(content, "before");
    return base::errorText(error);
  }

  Scratch folder_;
};

TEST_F(RegularFileTest, Content_IsReadWhole) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{16384}, kMaxBytes}) {
    folder_.put("file", std::string(size, '\0'));
    EXPECT_EQ(read(folder_ / "file"), std::string(size, '\0'));
  }
}

TEST_F(RegularFileTest, FileThatTellsNoSize_IsReadToItsEnd) {
  struct stat status {};
  constexpr const char* kPath = "/proc/sys/kernel/ostype";
  ASSERT_EQ(stat(kPath, &status), 0);
  ASSERT_EQ(status.st_size, 0);
  EXPECT_EQ(read(kPath), "Linux\n");
}

TEST_F(RegularFileTest, Link_IsFollowed) {
  folder_.put("target", "x");
  ASSERT_EQ(symlink("target", (folder_ / "link").c_str()), 0);
  ASSERT_EQ(symlink("nothing", (folder_ / "loose").c_str()), 0);
  EXPECT_EQ(read(folder_ / "link"), "x");
  EXPECT_EQ(read(folder_ / "loose"), base::errorText(ENOENT));
}

TEST_F(RegularFileTest, LargerFile_IsRefused) {
  folder_.put("file", std::string(kMaxBytes + 1, 'x'));
  EXPECT_EQ(read(folder_ / "file"), base::errorText(EFBIG));
}

TEST_F(RegularFileTest, FolderFifoAndDevice_AreRefused) {
  ASSERT_EQ(mkfifo((folder_ / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(read(folder_ / ""), base::errorText(EISDIR));
  EXPECT_EQ(read(folder_ / "fifo"), base::errorText(EINVAL));
  EXPECT_EQ(read("/dev/zero"), base::errorText(EINVAL));
}

}  // namespace
