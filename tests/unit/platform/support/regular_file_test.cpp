#include "platform/linux/support/regular_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace {

constexpr std::size_t kMaxBytes = 5000;

class RegularFileTest : public testing::Test {
 protected:
  RegularFileTest() {
    std::string name = testing::TempDir() + "jxregular-XXXXXX";
    directory_ = mkdtemp(name.data());
    path_ = directory_ + "/file";
  }
  ~RegularFileTest() override {
    unlink(path_.c_str());
    rmdir(path_.c_str());
    rmdir(directory_.c_str());
  }

  // The content of `path`, or the error.
  static std::string read(const std::string& path) {
    std::string content = "before";
    errno = 0;
    if (jxplatform::readRegularFile(path, kMaxBytes, content)) return content;
    const int error = errno;
    EXPECT_EQ(content, "before");
    return std::strerror(error);
  }

  std::string directory_;
  std::string path_;
};

TEST_F(RegularFileTest, Content_IsReadWhole) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{4096}, kMaxBytes}) {
    const std::string content(size, '\0');
    std::ofstream(path_, std::ios::binary) << content;
    EXPECT_EQ(read(path_), content);
  }
  EXPECT_EQ(read("/proc/self/comm").size(), read("/proc/self/comm").find('\n') + 1);  // of size 0, as it says
  EXPECT_GT(read("/proc/self/comm").size(), 1U);
}

TEST_F(RegularFileTest, Link_IsFollowed) {
  const std::string target = directory_ + "/target";
  std::ofstream(target) << "x";
  ASSERT_EQ(symlink(target.c_str(), path_.c_str()), 0);
  EXPECT_EQ(read(path_), "x");
  unlink(target.c_str());
  EXPECT_EQ(read(path_), "No such file or directory");
}

TEST_F(RegularFileTest, LargerFile_IsRefused) {
  std::ofstream(path_) << std::string(kMaxBytes + 1, 'x');
  EXPECT_EQ(read(path_), "File too large");
}

TEST_F(RegularFileTest, FolderFifoAndDevice_AreRefused) {
  EXPECT_EQ(read(directory_), "Is a directory");
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(read(path_), "Invalid argument");
  EXPECT_EQ(read("/dev/zero"), "Invalid argument");
}

}  // namespace
