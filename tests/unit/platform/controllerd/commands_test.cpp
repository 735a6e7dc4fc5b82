#include "platform/linux/services/controllerd/commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using controllerd::answer;
using testing::ElementsAre;
using zoripc::JSObject;

namespace {

class ControllerTest : public testing::Test {
 protected:
  ControllerTest() {
    char path[] = "/tmp/jxcontroller-XXXXXX";
    const char* made = mkdtemp(path);
    EXPECT_NE(made, nullptr);
    root_ = made == nullptr ? "" : made;
  }
  ~ControllerTest() override {
    if (root_.empty()) return;
    EXPECT_EQ(std::system(("rm -rf " + root_).c_str()), 0);
  }

  void install(const std::string& name, const std::string& manifest) {
    mkdir((root_ + "/apps").c_str(), 0755);
    mkdir((root_ + "/apps/" + name).c_str(), 0755);
    std::FILE* file = std::fopen(manifestOf(name).c_str(), "we");
    ASSERT_NE(file, nullptr);
    std::fwrite(manifest.data(), 1, manifest.size(), file);
    std::fclose(file);
  }

  std::string manifestOf(const std::string& name) const { return root_ + "/apps/" + name + "/manifest.json"; }

  std::vector<std::string> command(const std::string& word) {
    JSObject message;
    message["libmac_cmd"] = word;
    message["libmac_version"] = "3.16.5-79";
    return answer(root_, "jxdownloader", message);
  }

  std::string root_;
};

}  // namespace

TEST_F(ControllerTest, ShowDesktop_SaysSo) {
  EXPECT_THAT(command("libmac_show_desktop"), ElementsAre("The desktop is shown"));
}

TEST_F(ControllerTest, NothingInstalled_SaysSo) {
  EXPECT_THAT(command("libmac_scan_manifests"), ElementsAre("Installed applications: none"));
}

TEST_F(ControllerTest, Scan_ListsByName) {
  install("zeta", R"({"name":"zeta","version":"2.0"})");
  install("alpha", R"({"name":"alpha","version":"1.0.0~rc1","files":{}})");
  install(".new-alpha", R"({"name":"alpha","version":"9"})");
  EXPECT_THAT(command("libmac_scan_manifests"), ElementsAre("Installed applications:", "alpha 1.0.0~rc1", "zeta 2.0"));
}

TEST_F(ControllerTest, BadManifests_AreNamedAndTheOthersListed) {
  install("a-cut", R"({"name":"a-cut","ver)");
  install("b-list", "[]");
  install("c-versionless", R"({"name":"c-versionless"})");
  install("d-number", R"({"name":"d-number","version":1})");
  install("e-other", R"({"name":"hello","version":"1"})");
  install("f-deep", std::string(100000, '['));
  install("hello", R"({"name":"hello","version":"1"})");
  mkdir((root_ + "/apps/without").c_str(), 0755);
  EXPECT_THAT(command("libmac_scan_manifests"),
              ElementsAre("Installed applications:", "hello 1", "Error: apps/a-cut/manifest.json: not a JSON object",
                          "Error: apps/b-list/manifest.json: not a JSON object",
                          "Error: apps/c-versionless/manifest.json: without a name and a version",
                          "Error: apps/d-number/manifest.json: without a name and a version",
                          "Error: apps/e-other/manifest.json: names another application, hello",
                          "Error: apps/f-deep/manifest.json: not a JSON object",
                          "Error: apps/without/manifest.json: No such file or directory"));
}

TEST_F(ControllerTest, ManifestThatIsNoFile_IsNamed) {
  for (const char* const name : {"a-folder", "b-fifo", "c-endless", "d-large"}) {
    install(name, "");
    unlink(manifestOf(name).c_str());
  }
  ASSERT_EQ(mkdir(manifestOf("a-folder").c_str(), 0755), 0);
  ASSERT_EQ(mkfifo(manifestOf("b-fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink("/dev/zero", manifestOf("c-endless").c_str()), 0);
  install("d-large", std::string(16 * 1024 * 1024 + 1, ' '));
  EXPECT_THAT(command("libmac_scan_manifests"),
              ElementsAre("Installed applications:", "Error: apps/a-folder/manifest.json: Is a directory",
                          "Error: apps/b-fifo/manifest.json: not a regular file",
                          "Error: apps/c-endless/manifest.json: not a regular file",
                          "Error: apps/d-large/manifest.json: larger than 16 MiB"));
}

TEST_F(ControllerTest, TextFromOutside_CannotForgeALine) {
  install("a", R"({"name":"a","version":"1\nb 2"})");
  EXPECT_THAT(command("libmac_scan_manifests"), ElementsAre("Installed applications:", "a 1?b 2"));
  EXPECT_THAT(command("x\ny"), ElementsAre("Unknown command from jxdownloader: x?y"));
}

TEST_F(ControllerTest, UnknownCommand_IsNamed) {
  EXPECT_THAT(command("libmac_dance"), ElementsAre("Unknown command from jxdownloader: libmac_dance"));
  EXPECT_THAT(command(""), ElementsAre("Unknown command from jxdownloader: "));
  EXPECT_THAT(command(std::string(300, 'x')),
              ElementsAre("Unknown command from jxdownloader: " + std::string(200, 'x') + "..."));
}

TEST_F(ControllerTest, MessageWithoutACommand_IsShown) {
  EXPECT_THAT(answer(root_, "s", JSObject()), ElementsAre("Unknown message from s: null"));
  JSObject message;
  message["libmac_cmd"] = 5;
  EXPECT_THAT(answer(root_, "s", message), ElementsAre(R"(Unknown message from s: {"libmac_cmd":5})"));
}
