#include "platform/linux/zorguiprt/page_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "base/ignore.h"
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

  // Why it cannot be read; "missing: " stands before where it is.
  std::string reasonOf(const std::string& path) const {
    try {
      return files.read(path);
    } catch (const PageFiles::Missing& missing) {
      return std::string("missing: ") + missing.what();
    } catch (const jxplatform::Failure& failure) {
      return failure.what();
    }
  }

  const std::string folder = platformRoot() + "/pages";
  const PageFiles files{folder};
};

}  // namespace

TEST_F(Folder, FilesBelowIt_AreRead) {
  EXPECT_EQ(files.read("page.html"), "the page");
  EXPECT_EQ(files.read("sub/deeper/image.png"), std::string("\0\xFF", 2));
  write("empty.css", "");
  EXPECT_EQ(files.read("empty.css"), "");
}

TEST_F(Folder, PathsThatLeaveIt_AreMissing) {
  for (const std::string path :
       {"../outside.html", "sub/../page.html", "sub/../../outside.html", "..", ".", "", "/", "/etc/passwd",
        "//page.html", "sub//deeper/image.png", "sub/", "./page.html", ".hidden", "page.html/"}) {
    write(".hidden", "hidden");
    EXPECT_THROW(base::ignore(files.read(path)), PageFiles::Missing) << path;
  }
  EXPECT_THROW(base::ignore(files.read(std::string("page.html\0.png", 14))), PageFiles::Missing);
  EXPECT_THROW(base::ignore(files.read(std::string(5000, 'a'))), PageFiles::Missing);
}

TEST_F(Folder, SymbolicLinks_AreMissing) {
  fs::create_symlink("../outside.html", folder + "/link.html");
  fs::create_symlink("page.html", folder + "/inner.html");
  fs::create_directory_symlink("/etc", folder + "/etc");
  for (const char* const path : {"link.html", "inner.html", "etc/passwd"}) {
    EXPECT_THROW(base::ignore(files.read(path)), PageFiles::Missing) << path;
  }
}

TEST_F(Folder, FoldersAndPipes_AreMissing) {
  ASSERT_EQ(mkfifo((folder + "/pipe.html").c_str(), 0600), 0);
  EXPECT_EQ(reasonOf("pipe.html"), "missing: No such file or directory");
  EXPECT_EQ(reasonOf("sub"), "missing: Is a directory");
  EXPECT_EQ(reasonOf("missing.html"), "missing: No such file or directory");
  EXPECT_THROW(base::ignore(files.read("page.html/more")), PageFiles::Missing);
}

TEST_F(Folder, FileThatIsTooLarge_IsUnreadable) {
  write("large.png", "");
  fs::resize_file(folder + "/large.png", PageFiles::kLargestFile + 1);
  EXPECT_EQ(reasonOf("large.png"), "File too large");
}

TEST_F(Folder, FolderThatIsMissing_HasNoFiles) {
  EXPECT_THROW(base::ignore(PageFiles(folder + "/none").read("page.html")), PageFiles::Missing);
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
