#include "platform/linux/jxapp/application_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/ignore.h"
#include "platform/linux/jxapp/failure.h"
#include "tests/unit/platform/jxapp/scratch.h"
#include "tests/unit/platform/jxapp/system_calls.h"

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

// What the action fails with; empty when it does not.
template <typename Action>
std::string failureOf(Action action) {
  try {
    action();
    return "";
  } catch (const jxinstall::Failure& failure) {
    return failure.what();
  }
}

// Puts a new version of "a" beside the old one, and commits it.
std::string update(const Scratch& root, SystemCalls& calls, Replacement replacement) {
  root.write("apps/a/old", "");
  const ApplicationStore store(root.path(), replacement);
  return failureOf([&] {
    const base::Descriptor staged = store.stage("a");
    root.write("apps/.new-a/new", "");
    calls.changes.clear();
    store.commit("a");
  });
}

TEST(ApplicationStore, FolderThatCannotBeOpenedOrRead_IsAFailure) {
  const Scratch root;
  SystemCalls calls;
  calls.fail("open", EACCES, "/apps");
  EXPECT_EQ(failureOf([&] { const ApplicationStore store(root.path()); }),
            "the folder of the applications cannot be opened: Permission denied");
  const ApplicationStore store(root.path());
  calls.fail("readdir", EIO);
  EXPECT_EQ(failureOf([&] { base::ignore(store.list()); }),
            "the folder of the applications cannot be read: Input/output error");
}

TEST(ApplicationStore, FileInTheFoldersPlace_IsAFailure) {
  const Scratch root;
  root.write("apps", "");
  EXPECT_EQ(failureOf([&] { const ApplicationStore store(root.path()); }),
            "the folder of the applications cannot be opened: Not a directory");
}

TEST(ApplicationStore, FolderThatCannotBeStaged_IsAFailure) {
  const Scratch root;
  const ApplicationStore store(root.path());
  SystemCalls calls;
  calls.fail("mkdirat", ENOSPC, "/.new-a");
  EXPECT_EQ(failureOf([&] { store.stage("a"); }),
            "the application's folder cannot be created: No space left on device");
  for (const char* call : {"openat", "fchmod"}) {
    calls.fail(call, EIO, "/.new-a");
    EXPECT_EQ(failureOf([&] { store.stage("a"); }), "the application's folder cannot be opened: Input/output error")
        << call;
  }
}

// The swap is on the disk before the old application goes: a power cut between the two must find one of them.
TEST(ApplicationStore, Update_IsBroughtToTheDiskBeforeTheOldOneGoes) {
  const Scratch root;
  SystemCalls calls;
  EXPECT_EQ(update(root, calls, Replacement::kExchange), "");
  ASSERT_GE(calls.changes.size(), 3U);
  EXPECT_EQ(calls.changes[0], "renameat2 .new-a a");
  EXPECT_EQ(calls.changes[1], "fsync apps");
  EXPECT_EQ(calls.changes[2], "unlinkat .new-a");
}

TEST(ApplicationStore, TwoRenames_HaveTheFirstOnTheDiskBeforeTheSecond) {
  const Scratch root;
  SystemCalls calls;
  EXPECT_EQ(update(root, calls, Replacement::kTwoRenames), "");
  ASSERT_GE(calls.changes.size(), 4U);
  EXPECT_EQ(Tree(calls.changes.begin(), calls.changes.begin() + 4),
            (Tree{"renameat a .old-a", "fsync apps", "renameat .new-a a", "fsync apps"}));
  EXPECT_EQ(root.tree("apps"), (Tree{"a/", "a/new="}));
}

TEST(ApplicationStore, SweptOldApplication_IsBroughtToTheDisk) {
  const Scratch root;
  root.write("apps/.old-a/old", "");
  const ApplicationStore store(root.path());
  SystemCalls calls;
  store.sweep();
  EXPECT_EQ(calls.changes, (std::vector<std::string>{"fsync apps", "renameat .old-a a", "fsync apps"}));
}

// A rename before it may not be there yet, which a kill has left to the sweep.
TEST(ApplicationStore, Sweep_RemovesNothingBeforeTheNamesAreOnTheDisk) {
  const Scratch root;
  for (const char* file : {"a/new", ".old-a/old", ".new-b/new"}) root.write(std::string("apps/") + file, "");
  const ApplicationStore store(root.path());
  SystemCalls calls;
  calls.fail("fsync", EIO, "/apps");
  store.sweep();
  EXPECT_TRUE(root.exists("apps/.old-a/old"));
  EXPECT_TRUE(root.exists("apps/.new-b/new"));
  store.sweep();
  EXPECT_EQ(root.tree("apps"), (Tree{"a/", "a/new="}));
}

TEST(ApplicationStore, OldApplicationThatCannotBePutBack_IsKept) {
  const Scratch root;
  root.write("apps/.old-a/old", "");
  const ApplicationStore store(root.path());
  SystemCalls calls;
  calls.fail("renameat", ENOSPC, "/a");
  store.sweep();
  EXPECT_TRUE(root.exists("apps/.old-a/old"));
  store.sweep();
  EXPECT_TRUE(root.exists("apps/a/old"));
}

TEST(ApplicationStore, UpdateThatIsNotSureToBeOnTheDisk_KeepsTheOldOneForTheNextSweep) {
  const Scratch root;
  SystemCalls calls;
  calls.fail("fsync", EIO, "/apps");
  EXPECT_EQ(update(root, calls, Replacement::kExchange), "");
  EXPECT_TRUE(root.exists("apps/a/new"));
  EXPECT_TRUE(root.exists("apps/.new-a/old"));
}

// An empty folder would give way to a rename.
TEST(ApplicationStore, OldApplicationBesideAnEmptyNewOne_IsSwept) {
  const Scratch root;
  root.write("apps/.old-a/old", "");
  ASSERT_EQ(mkdir((root.path() + "/apps/a").c_str(), 0755), 0);
  ApplicationStore(root.path()).sweep();
  EXPECT_EQ(root.tree("apps"), Tree{"a/"});
}

TEST(ApplicationStore, ExchangeThatTheFileSystemLacks_IsDoneByTwoRenames) {
  for (const int error : {EINVAL, ENOSYS, EOPNOTSUPP}) {
    const Scratch root;
    SystemCalls calls;
    calls.fail("renameat2", error);
    EXPECT_EQ(update(root, calls, Replacement::kExchange), "") << error;
    EXPECT_EQ(root.tree("apps"), (Tree{"a/", "a/new="})) << error;
  }
}

TEST(ApplicationStore, SwapThatFails_LeavesTheOldOneInItsPlace) {
  struct Case {
    Replacement replacement;
    const char* call;
    const char* path;
    const char* failure;
  };
  const char* const kInPlace = "the application cannot be put in its place: Input/output error";
  for (const Case& one : {Case{Replacement::kExchange, "renameat2", "/a", kInPlace},
                          Case{Replacement::kTwoRenames, "renameat", "/.old-a",
                               "the old application cannot be moved aside: Input/output error"},
                          Case{Replacement::kTwoRenames, "fsync", "/apps", kInPlace},
                          Case{Replacement::kTwoRenames, "renameat", "/a", kInPlace}}) {
    const Scratch root;
    SystemCalls calls;
    calls.fail(one.call, EIO, one.path);
    EXPECT_EQ(update(root, calls, one.replacement), one.failure) << one.call << one.path;
    EXPECT_TRUE(root.exists("apps/a/old")) << one.call << one.path;
    EXPECT_FALSE(root.exists("apps/a/new")) << one.call << one.path;
  }
}

// Moving the old one back may meet a reason of its own, which is not the one to tell.
TEST(ApplicationStore, SwapThatFails_TellsTheFirstReason) {
  const Scratch root;
  SystemCalls calls;
  calls.fail("renameat", EIO, "/a");
  calls.fail("renameat", EROFS, "/a");
  EXPECT_EQ(update(root, calls, Replacement::kTwoRenames),
            "the application cannot be put in its place: Input/output error");
}

// It is gone on the disk before its files go: a power cut between the two must find all of it or nothing.
TEST(ApplicationStore, Removal_IsBroughtToTheDiskBeforeTheFilesGo) {
  const Scratch root;
  root.write("apps/a/deep/er/old", "old");
  root.write("apps/.new-a/left", "over");
  root.write("apps/b/kept", "");
  const ApplicationStore store(root.path());
  SystemCalls calls;
  EXPECT_TRUE(store.remove("a"));
  const auto moved = std::find(calls.changes.begin(), calls.changes.end(), "renameat a .new-a");
  ASSERT_GE(calls.changes.end() - moved, 3);
  EXPECT_EQ(moved[1], "fsync apps");
  EXPECT_EQ(root.tree("apps"), (Tree{"b/", "b/kept="}));
  EXPECT_FALSE(store.remove("a"));
}

TEST(ApplicationStore, RemovalThatFails_LeavesAllOfTheApplication) {
  for (const auto& [call, path] : {std::pair("renameat", "/.new-a"), std::pair("fsync", "/apps")}) {
    const Scratch root;
    root.write("apps/a/old", "old");
    const ApplicationStore store(root.path());
    SystemCalls calls;
    calls.fail(call, EIO, path);
    EXPECT_EQ(failureOf([&] { store.remove("a"); }),
              "the application cannot be taken from its place: Input/output error");
    EXPECT_EQ(root.tree("apps"), (Tree{"a/", "a/old=old"})) << call;
  }
}

// The next sweep would take it for the application.
TEST(ApplicationStore, Removal_RemovesWhatIsLeftOfAnOlderVersionFirst) {
  const Scratch root;
  root.write("apps/a/new", "");
  root.write("apps/.old-a/old", "");
  const ApplicationStore store(root.path());
  SystemCalls calls;
  calls.fail("unlinkat", EIO, "/old");
  EXPECT_EQ(failureOf([&] { base::ignore(store.remove("a")); }),
            "what is left of an older version cannot be removed: Input/output error");
  EXPECT_TRUE(root.exists("apps/a/new"));
  EXPECT_TRUE(store.remove("a"));
  store.sweep();
  EXPECT_EQ(root.tree("apps"), Tree{});
}

TEST(ApplicationStore, FirstInstallationThatCannotBeRenamed_IsAFailure) {
  const Scratch root;
  const ApplicationStore store(root.path());
  const base::Descriptor staged = store.stage("a");
  SystemCalls calls;
  calls.fail("renameat", EIO, "/a");
  EXPECT_EQ(failureOf([&] { store.commit("a"); }), "the application cannot be put in its place: Input/output error");
}

}  // namespace
