// The interface of the library, on the root that the environment names.
#include <jxapp.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "tests/support/no_memory.h"
#include "tests/unit/platform/jxapp/scratch.h"
#include "tests/unit/platform/jxapp/zip_bytes.h"

namespace {

// The root is the process's own: made before the library looks for it.
const Scratch& root() {
  static const Scratch folder;
  return folder;
}

class RootEnvironment : public testing::Environment {
 public:
  void SetUp() override { setenv("JXPLATFORM_ROOT", (root().path() + "/var/jx/").c_str(), 1); }
};
const testing::Environment* const kRoot = testing::AddGlobalTestEnvironment(new RootEnvironment);

void collect(void* data, const char* format, ...) {
  char line[4096];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  *static_cast<std::string*>(data) += line;
}

// Without memory of its own, of which there may be none.
void keepLine(void* data, const char* format, ...) {
  auto& line = *static_cast<std::string*>(data);
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line.data(), line.size(), format, arguments);
  va_end(arguments);
}

TEST(JxApp, SourceDirectory_IsMadeOnRequestAndInstalledFrom) {
  const std::string directory = jxapp::jxInstallSourceDir();
  EXPECT_EQ(directory, root().path() + "/var/jx/source");
  EXPECT_EQ(jxapp::jxInstallSourceDir(), directory);
  EXPECT_TRUE(jxapp::jxInstallCreateSourceDir());
  EXPECT_TRUE(jxapp::jxInstallCreateSourceDir());
  EXPECT_TRUE(root().exists("var/jx/source"));

  root().write("var/jx/source/upload-0.zip", zipBytes(packageEntries("hello", "1.0.0", {{"a", "b"}})));
  std::string log;
  EXPECT_EQ(jxapp::jxInstall(collect, &log), 0);
  EXPECT_NE(log.find("Installed hello 1.0.0\nList of installed applications:\n  hello 1.0.0\n"), std::string::npos)
      << log;

  ASSERT_EQ(rmdir(directory.c_str()), 0);
  root().write("var/jx/source", "");
  EXPECT_FALSE(jxapp::jxInstallCreateSourceDir());
  ASSERT_EQ(unlink(directory.c_str()), 0);
}

// In a program of its own: the library looks for the root once.
void useRootThatIsNotThere() {
  {
    const Scratch scratch;
    umask(0);
    setenv("JXPLATFORM_ROOT", (scratch.path() + "/var/jx").c_str(), 1);
    EXPECT_EQ(jxapp::jxInstallSourceDir(), scratch.path() + "/var/jx/source");
    EXPECT_TRUE(scratch.exists("var/jx"));
    EXPECT_TRUE(jxapp::jxInstallCreateSourceDir());
    std::string log;
    jxapp::jxInstall(collect, &log);
    for (const char* directory : {"var", "var/jx", "var/jx/source", "var/jx/apps"}) {
      EXPECT_EQ(scratch.mode(directory), 0755U) << directory;
    }
  }
  std::exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(JxAppDeathTest, RootThatIsNotThere_IsMadeOnFirstUseForEverybodyToRead) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(useRootThatIsNotThere(), testing::ExitedWithCode(0), "");
}

// Each call without any memory at all, then with room for one allocation more each time until it succeeds.
template <class Call>
int failuresUntilSuccess(Call call) {
  for (int room = 0; room < 1000; ++room) {
    noMemory::after(room);
    const bool done = call();
    noMemory::after(-1);
    if (done) return room;
  }
  return -1;
}

void useWithoutMemory() {
  {
    const Scratch scratch;
    setenv("JXPLATFORM_ROOT", scratch.path().c_str(), 1);
    EXPECT_GT(failuresUntilSuccess([] {
                const std::string_view path = jxapp::jxInstallSourceDir();
                if (path == "/dev/null") return false;
                return path.substr(path.size() - 7) == "/source";
              }),
              0);
    std::string line(1000, '\0');
    EXPECT_GT(failuresUntilSuccess([&line] { return jxapp::jxInstall(keepLine, &line) == 0; }), 0);
    EXPECT_EQ(line.substr(0, line.find('\0')), "List of installed applications:\n  (none)\n");
    std::string archive;
    EXPECT_GT(failuresUntilSuccess([&archive] { return jxapp::jxGetCertificateArchive(archive); }), 0);
  }
  std::exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(JxAppDeathTest, CallsWithoutMemory_FailAndThrowNothing) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(useWithoutMemory(), testing::ExitedWithCode(0), "");
}

void createWithoutMemory() {
  {
    const Scratch scratch;
    setenv("JXPLATFORM_ROOT", scratch.path().c_str(), 1);
    EXPECT_GT(failuresUntilSuccess(jxapp::jxInstallCreateSourceDir), 0);
  }
  std::exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(JxAppDeathTest, CreatingTheSourceDirectoryWithoutMemory_Fails) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(createWithoutMemory(), testing::ExitedWithCode(0), "");
}

void useAtTheEnd() {
  const std::string root = std::getenv("JXPLATFORM_ROOT");
  std::string archive;
  const bool good = jxapp::jxInstallSourceDir() == root + "/source" && jxapp::jxInstallCreateSourceDir() &&
                    jxapp::jxGetCertificateArchive(archive);
  std::filesystem::remove_all(root);
  if (!good) std::_Exit(1);
}

// The handler comes before the library's first use, and so is called when what that made would be destroyed already.
void endWithAnUploadUnderWay() {
  std::string folder = testing::TempDir() + "jxapp-end-XXXXXX";
  setenv("JXPLATFORM_ROOT", mkdtemp(folder.data()), 1);
  std::atexit(useAtTheEnd);
  EXPECT_EQ(jxapp::jxInstallSourceDir(), folder + "/source");
  std::exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(JxAppDeathTest, EndingProgram_StillHasItsSourceDirectory) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(endWithAnUploadUnderWay(), testing::ExitedWithCode(0), "");
}

TEST(JxApp, CertificateArchive_IsAppended) {
  std::string archive;
  EXPECT_TRUE(jxapp::jxGetCertificateArchive(archive));
  EXPECT_EQ(archive, std::string(archive.size(), '\0'));
  EXPECT_FALSE(archive.empty());
}

}  // namespace
