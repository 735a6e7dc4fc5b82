#include "platform/linux/zorguiprt/page_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/support/platform_root.h"

using jxplatform::contentType;
using jxplatform::PageFiles;
namespace fs = std::filesystem;

namespace {

class Folder : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(folder + "/sub/deeper");
    write("page.html", "the page");
    write("sub/deeper/image.png", std::string("\0\xFF", 2));
    write("../outside.html", "outside");
  }
  void TearDown() override {
    fs::remove_all(folder);
    fs::remove(platformRoot() + "/outside.html");
  }

  void write(const std::string& path, const std::string& text) { std::ofstream(folder + "/" + path) << text; }

  const std::string folder = platformRoot() + "/pages";
  const PageFiles files{folder};
  std::string content = "before";
};

}  // namespace

TEST_F(Folder, FilesBelowIt_AreRead) {
  EXPECT_EQ(files.read("page.html", content), PageFiles::Outcome::kRead);
  EXPECT_EQ(content, "the page");
  EXPECT_EQ(files.read("sub/deeper/image.png", content), PageFiles::Outcome::kRead);
  EXPECT_EQ(content, std::string("\0\xFF", 2));
  write("empty.css", "");
  EXPECT_EQ(files.read("empty.css", content), PageFiles::Outcome::kRead);
  EXPECT_EQ(content, "");
}

TEST_F(Folder, PathsThatLeaveIt_AreMissing) {
  for (const std::string path :
       {"../outside.html", "sub/../page.html", "sub/../../outside.html", "..", ".", "", "/", "/etc/passwd",
        "//page.html", "sub//deeper/image.png", "sub/", "./page.html", ".hidden", "page.html/"}) {
    write(".hidden", "hidden");
    EXPECT_EQ(files.read(path, content), PageFiles::Outcome::kMissing) << path;
    EXPECT_EQ(content, "") << path;
  }
  EXPECT_EQ(files.read(std::string("page.html\0.png", 14), content), PageFiles::Outcome::kMissing);
  EXPECT_EQ(files.read(std::string(5000, 'a'), content), PageFiles::Outcome::kMissing);
}

TEST_F(Folder, SymbolicLinks_AreMissing) {
  fs::create_symlink("../outside.html", folder + "/link.html");
  fs::create_symlink("page.html", folder + "/inner.html");
  fs::create_directory_symlink("/etc", folder + "/etc");
  for (const char* const path : {"link.html", "inner.html", "etc/passwd"}) {
    EXPECT_EQ(files.read(path, content), PageFiles::Outcome::kMissing) << path;
  }
}

TEST_F(Folder, FoldersAndPipes_AreMissing) {
  ASSERT_EQ(mkfifo((folder + "/pipe.html").c_str(), 0600), 0);
  EXPECT_EQ(files.read("pipe.html", content), PageFiles::Outcome::kMissing);
  EXPECT_EQ(files.read("sub", content), PageFiles::Outcome::kMissing);
  EXPECT_EQ(files.read("missing.html", content), PageFiles::Outcome::kMissing);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(files.read("page.html/more", content), PageFiles::Outcome::kMissing);
}

TEST_F(Folder, FileThatIsTooLarge_IsUnreadable) {
  write("large.png", "");
  fs::resize_file(folder + "/large.png", PageFiles::kLargestFile + 1);
  EXPECT_EQ(files.read("large.png", content), PageFiles::Outcome::kUnreadable);
  EXPECT_EQ(errno, EFBIG);
}

TEST_F(Folder, FolderThatIsMissing_HasNoFiles) {
  EXPECT_EQ(PageFiles(folder + "/none").read("page.html", content), PageFiles::Outcome::kMissing);
}

TEST_F(Folder, Environment_NamesTheFolder) {
  setenv("JXPLATFORM_PAGES", "/somewhere/pages", 1);
  EXPECT_EQ(jxplatform::pagesFolder(), "/somewhere/pages");
  unsetenv("JXPLATFORM_PAGES");
}

TEST(PagesFolder, LibraryInABuildFolder_FindsTheSourceTree) {
  const fs::path pages = jxplatform::pagesFolder();
  EXPECT_TRUE(pages.is_absolute());
  EXPECT_TRUE(fs::exists(pages / "mainmenu.html")) << pages;
}

TEST(ContentType, FollowsTheEnding) {
  EXPECT_STREQ(contentType("style.css"), "text/css; charset=utf-8");
  EXPECT_STREQ(contentType("a/screen.js"), "text/javascript; charset=utf-8");
  EXPECT_STREQ(contentType("page.html"), "text/html; charset=utf-8");
  EXPECT_STREQ(contentType("icon.svg"), "image/svg+xml");
  EXPECT_STREQ(contentType("icon.png"), "image/png");
  EXPECT_STREQ(contentType("font.woff2"), "font/woff2");
  EXPECT_STREQ(contentType("unknown.exe"), "application/octet-stream");
  EXPECT_STREQ(contentType("css"), "application/octet-stream");
  EXPECT_STREQ(contentType(".css"), "application/octet-stream");
}
