// The packer's rules are the installer's: both are asked, with names made to lie at the edges of the rules.
#include "tools/jxpack/package_rules.h"

#include <gtest/gtest.h>

#include <random>

#include "platform/linux/jxapp/entry_names.h"
#include "platform/linux/jxapp/failure.h"
#include "platform/linux/jxapp/manifest.h"
#include "platform/linux/jxapp/zip_index.h"

namespace {

// Texts of the characters that the rules turn on.
std::vector<std::string> texts() {
  const std::string alphabet = std::string("aAzZ09._-+~/\\ :\n\x7f\x80\xff", 19) + '\0';
  std::vector<std::string> all = {"",
                                  ".",
                                  "..",
                                  "/",
                                  "a",
                                  std::string(64, 'a'),
                                  std::string(65, 'a'),
                                  std::string(255, 'a'),
                                  std::string(256, 'a')};
  for (const char one : alphabet) {
    all.emplace_back(1, one);
    for (const char two : alphabet) {
      all.push_back({one, two});
      for (const char three : alphabet) all.push_back({one, two, three});
    }
  }
  std::minstd_rand random(1);
  for (int i = 0; i < 2000; ++i) {
    std::string text;
    for (std::size_t size = random() % 20; size > 0; --size) text += alphabet[random() % alphabet.size()];
    all.push_back(text);
  }
  return all;
}

bool installerTakes(const std::vector<std::string>& paths) {
  jxinstall::EntryNames names;
  try {
    names.add(jxinstall::kManifestName, false);
    names.add(jxinstall::kSignatureName, false);
    for (const std::string& path : paths) names.add(path, false);
    return true;
  } catch (const jxinstall::Failure&) {
    return false;
  }
}

TEST(PackageRules, OfNamesVersionsAndPaths_AreTheInstallers) {
  for (const std::string& text : texts()) {
    EXPECT_EQ(jxpack::nameProblem(text).empty(), jxinstall::isApplicationName(text)) << text;
    EXPECT_EQ(jxpack::versionProblem(text).empty(), jxinstall::isApplicationVersion(text)) << text;
    EXPECT_EQ(jxpack::pathProblem(text).empty(), jxinstall::nameProblem(text).empty()) << text;
  }
}

TEST(PackageRules, ReservedNames_AreRefusedAtTheRootOnly) {
  EXPECT_EQ(jxpack::pathProblem("manifest.json"), "the name is reserved");
  EXPECT_EQ(jxpack::pathProblem("manifest.json.p7s"), "the name is reserved");
  EXPECT_EQ(jxpack::pathProblem("data/manifest.json"), "");
}

TEST(PackageRules, OfNamesThatDifferInCase_AreTheInstallers) {
  const std::vector<std::vector<std::string>> lists = {
      {"a", "b"},     {"a", "A"},         {"a/x", "A/y"},        {"a/x", "a/y"},
      {"a/x", "a/X"}, {"Manifest.json"},  {"MANIFEST.JSON.p7s"}, {"x/Manifest.json"},
      {"a/b", "ab"},  {"bin/run", "Bin"},
  };
  for (const auto& list : lists) EXPECT_EQ(jxpack::caseProblem(list).empty(), installerTakes(list)) << list[0];
}

TEST(PackageRules, Bounds_AreTheInstallers) {
  EXPECT_EQ(jxpack::kMaxPathBytes, jxinstall::kMaxNameBytes);
  EXPECT_EQ(jxpack::kMaxDescriptionBytes, jxinstall::kMaxDescriptionBytes);
  EXPECT_EQ(jxpack::kMaxManifestBytes, jxinstall::kMaxManifestBytes);
  EXPECT_EQ(jxpack::kMaxEntries, jxinstall::kMaxEntries);
  EXPECT_EQ(jxpack::kMaxUnpackedBytes, jxinstall::kMaxUnpackedBytes);
  EXPECT_EQ(jxpack::kMaxArchiveBytes, jxinstall::kMaxArchiveBytes);
  EXPECT_EQ(jxpack::kFreeUnpackedBytes, jxinstall::kFreeUnpackedBytes);
  EXPECT_EQ(jxpack::kMaxRatio, jxinstall::kMaxRatio);
  EXPECT_STREQ(jxpack::kManifestName, jxinstall::kManifestName);
  EXPECT_STREQ(jxpack::kSignatureName, jxinstall::kSignatureName);
}

}  // namespace
