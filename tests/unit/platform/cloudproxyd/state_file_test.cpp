#include "platform/linux/services/cloudproxyd/state_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/linux/support/failure.h"

namespace {

bool foldersCannotBeSynced = false;
std::vector<std::string> calls;  // what was brought to the disk or renamed, in order

std::string baseName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

// These stand in the way of the system's.
extern "C" int fsync(int fd) {
  std::array<char, PATH_MAX> path{};
  struct stat status {};
  EXPECT_GT(readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path.data(), path.size() - 1), 0);
  EXPECT_EQ(fstat(fd, &status), 0);
  const bool isFolder = S_ISDIR(status.st_mode);
  calls.push_back("fsync " + (isFolder ? "folder" : baseName(path.data()) + " of " + std::to_string(status.st_size)));
  if (!isFolder || !foldersCannotBeSynced) return static_cast<int>(syscall(SYS_fsync, fd));
  errno = EIO;
  return -1;
}

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the header's names are reserved
extern "C" int rename(const char* from, const char* to) noexcept {
  calls.push_back("rename " + baseName(from) + " " + baseName(to));
  return renameat(AT_FDCWD, from, AT_FDCWD, to);
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

  static std::string contentOf(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  // "level environment mode" after loading, or the problem.
  std::string loaded() {
    try {
      const Settings settings = loadSettings(path, {3, "first", true});
      return std::to_string(settings.logLevel) + " " + settings.environment + (settings.authEx ? " on" : " off");
    } catch (const jxplatform::Failure& failure) {
      return failure.what();
    }
  }

  // The problem; empty when they are saved.
  std::string saved(const Settings& settings) {
    try {
      saveSettings(path, settings);
      return "";
    } catch (const jxplatform::Failure& failure) {
      return failure.what();
    }
  }

  std::string directory;
  std::string path;
};

TEST_F(StateFileTest, SavedSettings_AreLoaded) {
  EXPECT_EQ(saved({7, "test", false}), "");
  EXPECT_EQ(contentOf(path), "{\"auth_ex\":0,\"cloud_env\":\"test\",\"loglevel\":7}\n");
  EXPECT_EQ(loaded(), "7 test off");
  EXPECT_EQ(saved({2147483647, "<b>\"\\", true}), "");
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
  EXPECT_EQ(saved({}), "Is a directory");
  EXPECT_NE(access((path + ".new").c_str(), F_OK), 0);
  rmdir(path.c_str());
}

TEST_F(StateFileTest, AnotherKindOfFile_IsAProblemAndStays) {
  const auto expectRefused = [this] {
    EXPECT_EQ(loaded(), "it is not a regular file");
    EXPECT_EQ(saved({}), "it is not a regular file");
    EXPECT_NE(access((path + ".new").c_str(), F_OK), 0);
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_FALSE(S_ISREG(status.st_mode));
    unlink(path.c_str());
  };
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  expectRefused();
  ASSERT_EQ(symlink("/dev/zero", path.c_str()), 0);
  expectRefused();
}

TEST_F(StateFileTest, FailedSaving_LeavesTheOldFile) {
  EXPECT_EQ(saved({7, "test", false}), "");
  ASSERT_EQ(mkdir((path + ".new").c_str(), 0755), 0);
  EXPECT_EQ(saved({8, "prod", true}), "Is a directory");
  EXPECT_EQ(loaded(), "7 test off");
  rmdir((path + ".new").c_str());
}

// In any other order a power failure can leave an empty file, or the old one for good.
TEST_F(StateFileTest, Saving_BringsTheFileToTheDiskThenItsNameThenTheFolder) {
  calls.clear();
  EXPECT_EQ(saved({7, "test", false}), "");
  EXPECT_THAT(calls, testing::ElementsAre("fsync state.json.new of " + std::to_string(contentOf(path).size()),
                                          "rename state.json.new state.json", "fsync folder"));
}

TEST_F(StateFileTest, FolderThatCannotBeSynced_HasTheNewSettingsAndALineTellsIt) {
  EXPECT_EQ(saved({7, "test", false}), "");
  foldersCannotBeSynced = true;
  testing::internal::CaptureStderr();
  EXPECT_EQ(saved({8, "prod", true}), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "cloudproxyd: " + path + ": a power failure may bring the old settings back: Input/output error\n");
  EXPECT_EQ(loaded(), "8 prod on");
}

}  // namespace
}  // namespace cloudproxyd
