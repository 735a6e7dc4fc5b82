#include "shell/source_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tests/unit/shell/fixture.h"

namespace {

namespace fs = std::filesystem;

class SourceDirectoryTest : public ShellTest {
 protected:
  SourceDirectoryTest() {
    std::string made = testing::TempDir() + "jxsource-XXXXXX";
    root_ = mkdtemp(made.data());
    installer.sourceDir = root_ / "source";
  }
  ~SourceDirectoryTest() override { fs::remove_all(root_); }

  fs::path path(const std::string& name) const { return root_ / "source" / name; }

  void make(const Names& names) const {
    fs::create_directory(root_ / "source");
    for (const std::string& name : names) std::ofstream(path(name)) << "left";
  }

  Names present() const {
    Names names;
    for (const auto& entry : fs::directory_iterator(root_ / "source")) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  fs::path root_;
};

TEST_F(SourceDirectoryTest, EveryArchive_IsRemoved) {
  make({"upload-0.zip", "upload-7.zip", "upload-12.zip", "upload-007.zip", "upload-99999999999999999999.zip"});
  removeLeftArchives();
  EXPECT_EQ(present(), Names());
}

TEST_F(SourceDirectoryTest, OtherNames_Stay) {
  Names others = {"Upload-1.zip", "notes",          "upload-.zip",   "upload--1.zip", "upload-1",
                  "upload-1.ZIP", "upload-1.zip.1", "upload-1a.zip", "upload.zip",    "xupload-1.zip"};
  make(others);
  std::sort(others.begin(), others.end());
  removeLeftArchives();
  EXPECT_EQ(present(), others);
}

TEST_F(SourceDirectoryTest, LinksAndFolders_Stay) {
  make({"kept"});
  fs::create_symlink("kept", path("upload-1.zip"));
  fs::create_directory(path("upload-2.zip"));
  removeLeftArchives();
  EXPECT_EQ(present(), (Names{"kept", "upload-1.zip", "upload-2.zip"}));
}

TEST_F(SourceDirectoryTest, MissingDirectory_IsNotMade) {
  removeLeftArchives();
  { const SourceDirectoryUse use; }
  EXPECT_FALSE(fs::exists(installer.sourceDir));
}

TEST_F(SourceDirectoryTest, FileInItsPlace_IsLeftAlone) {
  std::ofstream(installer.sourceDir) << "in the way";
  removeLeftArchives();
  { const SourceDirectoryUse use; }
  EXPECT_EQ(fs::file_size(installer.sourceDir), 10U);
}

TEST_F(SourceDirectoryTest, DirectoryInUse_IsLeftAloneUntilItsLastUseEnds) {
  make({"upload-0.zip"});
  {
    const SourceDirectoryUse one;
    { const SourceDirectoryUse other; }
    removeLeftArchives();
    EXPECT_EQ(present(), Names{"upload-0.zip"});
  }
  removeLeftArchives();
  EXPECT_EQ(present(), Names());
}

TEST_F(SourceDirectoryTest, NoDescriptor_IsLeft) {
  make({"upload-0.zip"});
  const int before = dup(0);
  close(before);
  removeLeftArchives();
  { const SourceDirectoryUse use; }
  const int after = dup(0);
  close(after);
  EXPECT_EQ(before, after);
}

}  // namespace
