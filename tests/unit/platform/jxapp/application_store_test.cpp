#include "platform/linux/jxapp/application_store.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/linux/jxapp/failure.h"
#include "tests/unit/platform/jxapp/scratch.h"

namespace {

using jxinstall::ApplicationStore;
using jxinstall::Replacement;

using Tree = std::vector<std::string>;

std::string manifest(const std::string& name, const std::string& version) {
  return R"({"name":")" + name + R"(","version":")" + version + R"(","files":{}})";
}

TEST(ApplicationStore, New_MakesTheFolder) {
  const Scratch root;
  const ApplicationStore store(root.path());
  EXPECT_EQ(root.tree(), Tree{"apps/"});
  EXPECT_TRUE(store.list().empty());
}

TEST(ApplicationStore, WithoutARoot_Fails) {
  const Scratch root;
  EXPECT_THROW(ApplicationStore(root.path() + "/none"), jxinstall::Failure);
}

TEST(ApplicationStore, List_HasTheApplicationsByName) {
  const Scratch root;
  root.write("apps/b/manifest.json", manifest("b", "2"));
  root.write("apps/a/manifest.json", manifest("a", "1"));
  root.write("apps/broken/manifest.json", "{");
  root.write("apps/none/other", "");
  root.write("apps/file", "");
  root.write("apps/.new-c/manifest.json", manifest("c", "3"));
  std::string text;
  for (const auto& application : ApplicationStore(root.path()).list()) {
    text += application.name + '=' + application.version.value_or("?") + ' ';
  }
  EXPECT_EQ(text, "a=1 b=2 broken=? none=? ");
}

class Commit : public testing::TestWithParam<Replacement> {};

TEST_P(Commit, FirstInstallation_StandsInItsPlace) {
  const Scratch root;
  ApplicationStore store(root.path(), GetParam());
  store.stage("a");
  root.write("apps/.new-a/file", "new");
  store.commit("a");
  EXPECT_EQ(root.tree("apps"), (Tree{"a/", "a/file=new"}));
}

TEST_P(Commit, Update_ReplacesAllOfTheOldAndLeavesNothing) {
  const Scratch root;
  root.write("apps/a/deep/er/old", "old");
  ApplicationStore store(root.path(), GetParam());
  store.stage("a");
  root.write("apps/.new-a/file", "new");
  EXPECT_EQ(root.read("apps/a/deep/er/old"), "old");
  store.commit("a");
  EXPECT_EQ(root.tree("apps"), (Tree{"a/", "a/file=new"}));
}

TEST_P(Commit, ALinkInTheOldApplication_IsNotFollowed) {
  const Scratch root;
  root.write("outside/kept", "kept");
  root.write("apps/a/old", "");
  ASSERT_EQ(symlink((root.path() + "/outside").c_str(), (root.path() + "/apps/a/link").c_str()), 0);
  ApplicationStore store(root.path(), GetParam());
  store.stage("a");
  store.commit("a");
  EXPECT_EQ(root.tree("apps"), Tree{"a/"});
  EXPECT_EQ(root.read("outside/kept"), "kept");
}

INSTANTIATE_TEST_SUITE_P(Replacements, Commit, testing::Values(Replacement::kExchange, Replacement::kTwoRenames));

TEST(ApplicationStore, Stage_BeginsEmpty) {
  const Scratch root;
  root.write("apps/.new-a/left", "over");
  ApplicationStore(root.path()).stage("a");
  EXPECT_EQ(root.tree("apps"), Tree{".new-a/"});
}

TEST(ApplicationStore, Discard_LeavesTheOld) {
  const Scratch root;
  root.write("apps/a/old", "");
  ApplicationStore store(root.path());
  store.stage("a");
  store.discard("a");
  EXPECT_EQ(root.tree("apps"), (Tree{"a/", "a/old="}));
}

struct Left {
  const char* description;
  std::vector<std::string> files;
  Tree after;
};

class Sweep : public testing::TestWithParam<Left> {};

TEST_P(Sweep, LeavesWholeApplicationsOnly) {
  const Scratch root;
  for (const std::string& file : GetParam().files) root.write("apps/" + file, "");
  ApplicationStore store(root.path());
  store.sweep();
  EXPECT_EQ(root.tree("apps"), GetParam().after) << GetParam().description;
}

const Left kLeft[] = {
    {"nothing", {"a/x"}, {"a/", "a/x="}},
    {"a new one in the making", {".new-a/x"}, {}},
    {"a new one beside the old", {".new-a/x", "a/old"}, {"a/", "a/old="}},
    {"the old one moved aside", {".new-a/x", ".old-a/old"}, {"a/", "a/old="}},
    {"both renames done", {".old-a/old", "a/new"}, {"a/", "a/new="}},
    {"the old one moved aside, the new one gone", {".old-a/old"}, {"a/", "a/old="}},
    {"two applications", {".new-a/x", ".old-b/b", "c/c"}, {"b/", "b/b=", "c/", "c/c="}},
    {"files", {".new-a", ".old-b", "b/x"}, {"b/", "b/x="}},
};
INSTANTIATE_TEST_SUITE_P(States, Sweep, testing::ValuesIn(kLeft));

}  // namespace
