#include "upload/make_parent_dirs.h"

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "tests/unit/upload/server.h"

namespace {

class MakeParentDirsTest : public UploadTest {
 protected:
  mode_t modeOf(const std::string& name) const {
    struct stat status {};
    return stat(path(name).c_str(), &status) == 0 ? status.st_mode : 0;
  }
};

TEST_F(MakeParentDirsTest, NoSlash_NeedsNothing) {
  EXPECT_TRUE(makeParentDirs(""));
  EXPECT_TRUE(makeParentDirs("upload-0.zip"));
}

TEST_F(MakeParentDirsTest, ExistingDirectory_IsLeftAlone) {
  EXPECT_TRUE(makeParentDirs(path("upload-0.zip")));
  EXPECT_EQ(stored(), Files());
}

TEST_F(MakeParentDirsTest, MissingDirectories_AreMadeWithTheMask) {
  const mode_t mask = umask(0);
  EXPECT_TRUE(makeParentDirs(path("open/file")));
  umask(027);
  EXPECT_TRUE(makeParentDirs(path("a/b/c/file")));
  umask(mask);
  EXPECT_EQ(modeOf("open"), S_IFDIR | 0777U);
  EXPECT_EQ(modeOf("a"), S_IFDIR | 0750U);
  EXPECT_EQ(modeOf("a/b"), S_IFDIR | 0750U);
  EXPECT_EQ(modeOf("a/b/c"), S_IFDIR | 0750U);
  EXPECT_EQ(modeOf("a/b/c/file"), 0U);
}

TEST_F(MakeParentDirsTest, FileInTheDirectorysPlace_Passes) {
  std::ofstream(path("a")) << "in the way";
  EXPECT_TRUE(makeParentDirs(path("a/file")));
  EXPECT_EQ(stored(), (Files{{"a", "in the way"}}));
}

TEST_F(MakeParentDirsTest, FileAbove_Fails) {
  std::ofstream(path("a")) << "in the way";
  EXPECT_FALSE(makeParentDirs(path("a/b/file")));
  EXPECT_FALSE(makeParentDirs(path("a/b/c/file")));
}

TEST_F(MakeParentDirsTest, DanglingLink_Fails) {
  ASSERT_EQ(symlink("nowhere", path("a").c_str()), 0);
  EXPECT_FALSE(makeParentDirs(path("a/file")));
}

TEST_F(MakeParentDirsTest, DirectoriesMadeBeforeAFailure_Stay) {
  const std::string tooLong(300, 'n');
  EXPECT_FALSE(makeParentDirs(path("a/" + tooLong + "/file")));
  EXPECT_EQ(modeOf("a") & S_IFDIR, static_cast<mode_t>(S_IFDIR));
}

// The directory above the first slash has no name that could be asked for or made.
TEST_F(MakeParentDirsTest, Root_Fails) { EXPECT_FALSE(makeParentDirs("/file")); }

}  // namespace
