#include "platform/linux/services/cloudproxyd/state_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace {

bool foldersCannotBeSynced = false;

}  // namespace

// Stands in the way of the system's.
extern "C" int fsync(int fd) {
  struct stat status {};
  if (foldersCannotBeSynced && fstat(fd, &status) == 0 && S_ISDIR(status.st_mode)) {
    errno = EIO;
    return -1;
  }
  return static_cast<int>(syscall(SYS_fsync, fd));
}

namespace cloudproxyd {
namespace {

class StateFileTest : public testing::Test {
 protected:
  StateFileTest() {
    std::string name = testing::TempDir() + "jxstate-XXXXXX";
    directory = mkdtemp(name.data());
    path = directory + "/state.json";
  }
  ~StateFileTest() override {
    foldersCannotBeSynced = false;
    std::remove(path.c_str());
    std::remove((path + ".new").c_str());
    rmdir(directory.c_str());
  }

  void put(const std::string& text) const { std::ofstream(path, std::ios::binary) << text; }

  std::string content() const {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  // "level environment mode" after loading, or the problem.
  std::string loaded() {
    Settings settings{3, "first", true};
    std::string problem = loadSettings(path, settings);
    std::string text =
        std::to_string(settings.logLevel) + " " + settings.environment + (settings.authEx ? " on" : " off");
    if (problem.empty()) return text;
    EXPECT_EQ(text, "3 first on");
    return problem;
  }

  std::string directory;
  std::string path;
};

TEST_F(StateFileTest, SavedSettings_AreLoaded) {
  EXPECT_EQ(saveSettings(path, {7, "test", false}), "");
  EXPECT_EQ(content(), "{\"auth_ex\":0,\"cloud_env\":\"test\",\"loglevel\":7}\n");
  EXPECT_EQ(loaded(), "7 test off");
  EXPECT_EQ(saveSettings(path, {2147483647, "<b>\"\\", true}), "");
  EXPECT_EQ(loaded(), "2147483647 <b>\"\\ on");
  EXPECT_NE(access((path + ".new").c_str(), F_OK), 0);
}

TEST_F(StateFileTest, AbsentFile_ChangesNothing) { EXPECT_EQ(loaded(), "3 first on"); }

TEST_F(StateFileTest, AbsentMembers_KeepTheirValues) {
  put(R"({"cloud_env":"test","other":[1]})");
  EXPECT_EQ(loaded(), "3 test on");
  put("{}");
  EXPECT_EQ(loaded(), "3 first on");
}

TEST_F(StateFileTest, AnythingElse_IsAProblemAndChangesNothing) {
  for (const std::string text :
       {"", "{", "[]", "null", "5", R"({"loglevel":-1})", R"({"loglevel":2147483648})",
        R"({"loglevel":99999999999999999999})", R"({"loglevel":"5"})", R"({"loglevel":5.0})", R"({"loglevel":null})",
        R"({"cloud_env":null})", R"({"cloud_env":["a"]})", R"({"auth_ex":2})", R"({"auth_ex":true})",
        R"({"loglevel":5}x)", R"({"loglevel":5,"cloud_env":"a","auth_ex":"1"})"}) {
    put(text);
    EXPECT_EQ(loaded(), "its content is not that of a settings file") << text;
  }
  put(R"({"loglevel":5})" + std::string(70000, ' '));
  EXPECT_EQ(loaded(), "its content is not that of a settings file");
}

TEST_F(StateFileTest, FolderInItsPlace_IsAProblem) {
  ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
  EXPECT_EQ(loaded(), "Is a directory");
  EXPECT_EQ(saveSettings(path, {}), "Is a directory");
  EXPECT_NE(access((path + ".new").c_str(), F_OK), 0);
  rmdir(path.c_str());
}

TEST_F(StateFileTest, FailedSaving_LeavesTheOldFile) {
  EXPECT_EQ(saveSettings(path, {7, "test", false}), "");
  ASSERT_EQ(mkdir((path + ".new").c_str(), 0755), 0);
  EXPECT_EQ(saveSettings(path, {8, "prod", true}), "Is a directory");
  EXPECT_EQ(loaded(), "7 test off");
  rmdir((path + ".new").c_str());
}

TEST_F(StateFileTest, FolderThatCannotBeSynced_HasTheNewSettingsAndALineTellsIt) {
  EXPECT_EQ(saveSettings(path, {7, "test", false}), "");
  foldersCannotBeSynced = true;
  testing::internal::CaptureStderr();
  EXPECT_EQ(saveSettings(path, {8, "prod", true}), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "cloudproxyd: " + path + ": a power failure may bring the old settings back: Input/output error\n");
  EXPECT_EQ(loaded(), "8 prod on");
}

TEST_F(StateFileTest, LinkInThePlaceOfTheNewFile_IsNotFollowed) {
  const std::string victim = directory + "/victim";
  ASSERT_EQ(symlink(victim.c_str(), (path + ".new").c_str()), 0);
  EXPECT_NE(saveSettings(path, {}), "");
  EXPECT_NE(access(victim.c_str(), F_OK), 0);
}

}  // namespace
}  // namespace cloudproxyd
