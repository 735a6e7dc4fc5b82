#include "platform/linux/jxapp/package.h"

#include <gtest/gtest.h>

#include "platform/linux/jxapp/failure.h"
#include "platform/linux/jxapp/file.h"
#include "platform/linux/jxapp/staging.h"
#include "tests/unit/platform/jxapp/scratch.h"
#include "tests/unit/platform/jxapp/zip_bytes.h"

#include <fcntl.h>

namespace {

using base::Descriptor;
using jxinstall::Failure;
using jxinstall::readPackage;

const std::map<std::string, std::string> kFiles = {{"bin/hello", "#!/bin/sh\n"}, {"text", "Hello"}};

// Reads the package and unpacks it into `place`; the failure, if any.
std::string unpack(const std::string& bytes, const Scratch& place) {
  try {
    const Descriptor file(anonymousFile(bytes));
    const Descriptor directory(open(place.path().c_str(), O_RDONLY | O_DIRECTORY));
    unpackInto(directory.get(), file.get(), readPackage(file.get(), bytes.size()));
    return "";
  } catch (const Failure& failure) {
    return failure.what();
  }
}

std::string failureOf(const std::string& bytes) {
  const Scratch place;
  return unpack(bytes, place);
}

TEST(Package, GoodOne_IsUnpackedWithItsManifest) {
  const Scratch place;
  std::vector<RawEntry> entries = packageEntries("hello", "1.0.0", kFiles);
  entries[1].mode = 0100700;
  ASSERT_EQ(unpack(zipBytes(entries), place), "");
  EXPECT_EQ(place.tree(),
            (std::vector<std::string>{"bin/", "bin/hello=#!/bin/sh\n",
                                      "manifest.json=" + manifestOf("hello", "1.0.0", kFiles), "text=Hello"}));
  EXPECT_EQ(place.mode("bin"), 0755U);
  EXPECT_EQ(place.mode("bin/hello"), 0755U);
  EXPECT_EQ(place.mode("text"), 0644U);
  EXPECT_EQ(place.mode("manifest.json"), 0644U);
}

TEST(Package, ManifestAnywhereInTheArchive_IsFound) {
  std::vector<RawEntry> entries = packageEntries("hello", "1.0.0", kFiles);
  std::swap(entries.front(), entries.back());
  EXPECT_EQ(failureOf(zipBytes(entries)), "");
}

TEST(Package, DirectoriesWithoutFiles_AreNotMade) {
  const Scratch place;
  std::vector<RawEntry> entries = packageEntries("hello", "1.0.0", {});
  entries.emplace_back();
  entries.back().name = "empty/";
  entries.back().mode = 040755;
  ASSERT_EQ(unpack(zipBytes(entries), place), "");
  EXPECT_FALSE(place.exists("empty"));
}

TEST(Package, WithoutManifest_IsRefused) {
  RawEntry entry;
  entry.name = "sub/manifest.json";
  EXPECT_EQ(failureOf(zipBytes({})), "has no manifest.json at its root");
  EXPECT_EQ(failureOf(zipBytes({entry})), "has no manifest.json at its root");
}

TEST(Package, FileThatIsNotListed_IsRefused) {
  std::vector<RawEntry> entries = packageEntries("hello", "1.0.0", kFiles);
  entries.emplace_back();
  entries.back().name = "extra";
  EXPECT_EQ(failureOf(zipBytes(entries)), "\"extra\": is not listed in manifest.json");
}

TEST(Package, ListedFileThatIsMissing_IsRefused) {
  std::vector<RawEntry> entries = packageEntries("hello", "1.0.0", kFiles);
  entries.pop_back();
  EXPECT_EQ(failureOf(zipBytes(entries)), "\"text\": is listed in manifest.json but not in the archive");
  entries.back().name = "text/";
  entries.back().content = "";
  entries.back().mode = 040755;
  EXPECT_NE(failureOf(zipBytes(entries)), "");
}

TEST(Package, ContentThatDoesNotMatch_IsRefused) {
  std::vector<RawEntry> entries = packageEntries("hello", "1.0.0", kFiles);
  entries.back().content = "hello";
  EXPECT_EQ(failureOf(zipBytes(entries)), "\"text\": does not match its digest in manifest.json");
}

TEST(Package, ContentWithAWrongChecksumOrBrokenData_IsRefused) {
  std::string bytes = zipBytes(packageEntries("hello", "1.0.0", kFiles));
  bytes[bytes.find("Hello")] = 'J';
  const std::string failure = failureOf(bytes);
  EXPECT_TRUE(failure == "\"text\": does not match its digest in manifest.json" ||
              failure.rfind("\"text\": cannot be unpacked: ", 0) == 0)
      << failure;
  std::vector<RawEntry> entries = packageEntries("hello", "1.0.0", kFiles);
  entries.back().method = 8;
  EXPECT_EQ(failureOf(zipBytes(entries)).rfind("\"text\": ", 0), 0U);
}

TEST(Package, AnyByteChanged_IsTheSamePackageOrAFailure) {
  const std::string whole = zipBytes(packageEntries("hello", "1.0.0", kFiles));
  const Scratch good;
  ASSERT_EQ(unpack(whole, good), "");
  for (std::size_t at = 0; at < whole.size(); ++at) {
    std::string bytes = whole;
    bytes[at] = static_cast<char>(bytes[at] ^ 1);
    const Scratch place;
    const std::string failure = unpack(bytes, place);
    // What the manifest does not vouch for are its own free words.
    if (failure.empty() && place.read("manifest.json") == good.read("manifest.json")) {
      EXPECT_EQ(place.tree(), good.tree()) << at;
    }
  }
}

TEST(Package, SignatureAndManifestBeyondTheirBounds_AreRefused) {
  std::vector<RawEntry> entries = packageEntries("hello", "1.0.0", {});
  entries.emplace_back();
  entries.back().name = "manifest.json.p7s";
  entries.back().content = std::string(64 * 1024 + 1, 's');
  EXPECT_EQ(failureOf(zipBytes(entries)), "\"manifest.json.p7s\": has 65537 bytes, at most 65536 are allowed");
  entries.pop_back();
  entries[0].content += std::string(4 * 1024 * 1024, ' ');
  EXPECT_EQ(failureOf(zipBytes(entries)), "\"manifest.json\": has " + std::to_string(entries[0].content.size()) +
                                              " bytes, at most 4194304 are allowed");
}

TEST(Package, TheSignature_IsKeptBesideTheManifest) {
  const Scratch place;
  std::vector<RawEntry> entries = packageEntries("hello", "1.0.0", {});
  entries.emplace_back();
  entries.back().name = "manifest.json.p7s";
  entries.back().content = "signature";
  ASSERT_EQ(unpack(zipBytes(entries), place), "");
  EXPECT_EQ(place.read("manifest.json.p7s"), "signature");
}

TEST(Package, PlaceThatIsTaken_IsAFailureAndNotOverwritten) {
  const Scratch place;
  place.write("text", "before");
  EXPECT_EQ(unpack(zipBytes(packageEntries("hello", "1.0.0", kFiles)), place),
            "\"text\": cannot be created: File exists");
  EXPECT_EQ(place.read("text"), "before");
}

}  // namespace
