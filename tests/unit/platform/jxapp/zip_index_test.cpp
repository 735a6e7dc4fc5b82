#include "platform/linux/jxapp/zip_index.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "base/ignore.h"
#include "platform/linux/jxapp/failure.h"
#include "platform/linux/jxapp/file.h"
#include "tests/unit/platform/jxapp/scratch.h"
#include "tests/unit/platform/jxapp/zip_bytes.h"

namespace {

using base::Descriptor;
using jxinstall::Failure;
using jxinstall::readZipIndex;
using jxinstall::ZipIndex;

ZipIndex indexOf(const std::string& bytes) {
  const Descriptor file(anonymousFile(bytes));
  return readZipIndex(file.get(), bytes.size());
}

std::string failureOf(const std::string& bytes) {
  try {
    indexOf(bytes);
    return "";
  } catch (const Failure& failure) {
    return failure.what();
  }
}

RawEntry entryOf(const std::string& name, const std::string& content = "abc") {
  RawEntry entry;
  entry.name = name;
  entry.content = content;
  return entry;
}

// The failure of an archive with one entry that `change` has made wrong.
template <typename Change>
std::string failureWith(Change change) {
  RawEntry entry = entryOf("x");
  change(entry);
  return failureOf(zipBytes({entry}));
}

std::string extraField(unsigned kind, const std::string& data) {
  return little16(kind) + little16(static_cast<unsigned>(data.size())) + data;
}

TEST(ZipIndex, FilesAndDirectories_AreListedInTheOrderOfTheBytes) {
  RawEntry directory = entryOf("d/", "");
  directory.mode = S_IFDIR | 0755U;
  RawEntry program = entryOf("d/run", "12345");
  program.mode = S_IFREG | 0700U;
  const ZipIndex index = indexOf(zipBytes({directory, program, entryOf("plain", "")}));
  ASSERT_EQ(index.entries.size(), 3U);
  EXPECT_EQ(index.entries[0].name, "d");
  EXPECT_TRUE(index.entries[0].directory);
  EXPECT_FALSE(index.entries[0].executable);
  EXPECT_EQ(index.entries[1].name, "d/run");
  EXPECT_TRUE(index.entries[1].executable);
  EXPECT_EQ(index.entries[1].size, 5U);
  EXPECT_FALSE(index.entries[2].executable);
  EXPECT_EQ(index.unpackedBytes, 5U);
}

TEST(ZipIndex, NoEntries_AreNone) { EXPECT_TRUE(indexOf(zipBytes({})).entries.empty()); }

TEST(ZipIndex, ModeOfAnotherSystem_IsNotLookedAt) {
  RawEntry entry = entryOf("x");
  entry.host = 0;
  entry.mode = S_IFLNK | 0777U;
  EXPECT_FALSE(indexOf(zipBytes({entry})).entries[0].executable);
}

TEST(ZipIndex, CutAnywhere_IsRefused) {
  const std::string whole = zipBytes({entryOf("a"), entryOf("b/c", "content")});
  ASSERT_EQ(failureOf(whole), "");
  for (std::size_t size = 0; size < whole.size(); ++size) EXPECT_NE(failureOf(whole.substr(0, size)), "") << size;
  EXPECT_EQ(failureOf(whole.substr(0, whole.size() - 1)), "is cut off, or has bytes after its end");
}

TEST(ZipIndex, NotAZip_IsRefused) {
  EXPECT_EQ(failureOf(""), "is not a zip archive");
  EXPECT_EQ(failureOf("junk"), "is not a zip archive");
  EXPECT_EQ(failureOf(std::string(100000, '\0')), "is not a zip archive");
}

TEST(ZipIndex, BytesAroundAndBetweenTheEntries_AreRefused) {
  const std::string good = zipBytes({entryOf("a"), entryOf("b")});
  EXPECT_EQ(failureOf("junk" + good), "the central directory is not where the end record says");
  EXPECT_EQ(failureOf(good + "junk"), "is cut off, or has bytes after its end");
  EXPECT_EQ(failureOf(zipBytes({entryOf("a")}, RawEnd{"", "comment", {}, 0})),
            "is cut off, or has bytes after its end");
  RawEntry gap = entryOf("b");
  gap.gapBefore = "gap";
  EXPECT_EQ(failureOf(zipBytes({entryOf("a"), gap})), "\"b\": begins at byte 37, byte 34 was expected");
  EXPECT_EQ(failureOf(zipBytes({gap})), "\"b\": begins at byte 3, byte 0 was expected");
  EXPECT_EQ(failureOf(zipBytes({entryOf("a")}, RawEnd{"hidden", "", {}, 0})),
            "6 bytes before the central directory belong to no entry");
}

// Two entries on the same bytes: the way small archives become huge ones.
TEST(ZipIndex, OverlappingEntries_AreRefused) {
  RawEntry second = entryOf("b");
  second.offset = 0;
  EXPECT_NE(failureOf(zipBytes({entryOf("a"), second})), "");
}

TEST(ZipIndex, LocalHeaderThatDiffers_IsRefused) {
  const std::string differs = "\"x\": the local header differs from the central directory";
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.localName = "y"; }), differs);
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.localFlags = 2; }), differs);
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.localMethod = 8; }), differs);
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.localChecksum = 1; }), differs);
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.localPackedSize = 2; }), differs);
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.localSize = 0; }), differs);
}

TEST(ZipIndex, DataDescriptor_MustAgree) {
  RawEntry entry = entryOf("x");
  entry.flags = 8;
  entry.localChecksum = entry.localPackedSize = entry.localSize = 0;
  const std::string descriptor = little32(zipChecksum("abc")) + little32(3) + little32(3);
  entry.afterData = "PK\x07\x08" + descriptor;
  EXPECT_EQ(failureOf(zipBytes({entry})), "");
  entry.afterData = descriptor;
  EXPECT_EQ(failureOf(zipBytes({entry})), "");
  const std::string differs = "\"x\": the data descriptor differs from the central directory";
  entry.afterData = little32(zipChecksum("abc")) + little32(3) + little32(4);
  EXPECT_EQ(failureOf(zipBytes({entry})), differs);
  entry.afterData = "";
  EXPECT_EQ(failureOf(zipBytes({entry})), differs);
  EXPECT_EQ(failureOf(zipBytes({entry}, RawEnd{std::string(16, '\0'), "", {}, 0})), differs);
}

TEST(ZipIndex, EncryptedOrOtherwisePacked_IsRefused) {
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.flags = 1; }), "\"x\": is encrypted");
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.flags = 0x41; }), "\"x\": is encrypted");
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.flags = 0x40; }), "\"x\": has flags that are not allowed");
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.flags = 0x2000; }), "\"x\": has flags that are not allowed");
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.flags = 0x20; }), "\"x\": has flags that are not allowed");
  for (const unsigned method : {1U, 9U, 12U, 14U, 93U, 99U}) {
    EXPECT_EQ(failureWith([&](RawEntry& entry) { entry.method = method; }),
              "\"x\": is packed by method " + std::to_string(method) + ", only 0 and 8 are allowed");
  }
}

TEST(ZipIndex, StoredWithTwoSizes_IsRefused) {
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.size = 4; }), "\"x\": is stored, but its two sizes differ");
}

TEST(ZipIndex, Zip64OrAnotherDisk_IsRefused) {
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.offset = 0xffffffff; }), "\"x\": needs ZIP64 or another disk");
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.centralExtra = extraField(1, std::string(8, '\0')); }),
            "\"x\": has an extra field of kind 1, which is not allowed");
  EXPECT_EQ(failureOf(zipBytes({entryOf("a")}, RawEnd{"", "", {}, 1})), "is a part of a set");
}

TEST(ZipIndex, ExtraFieldThatChangesTheEntry_IsRefusedOthersAreNot) {
  EXPECT_EQ(failureWith([](RawEntry& entry) {
              entry.localExtra = extraField(0x5455, "time!") + extraField(0x7875, "");
              entry.centralExtra = extraField(0x5455, "t");
            }),
            "");
  for (const unsigned kind : {0x0001U, 0x0017U, 0x7075U, 0x756eU, 0x9901U}) {
    const std::string refused = "\"x\": has an extra field of kind " + std::to_string(kind) + ", which is not allowed";
    EXPECT_EQ(failureWith([&](RawEntry& entry) { entry.localExtra = extraField(kind, "abcd"); }), refused);
    EXPECT_EQ(failureWith([&](RawEntry& entry) { entry.centralExtra = extraField(kind, "abcd"); }), refused);
  }
  const std::string broken = "\"x\": has a broken extra field";
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.centralExtra = "abc"; }), broken);
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.localExtra = little16(0x5455) + little16(9) + "short"; }), broken);
}

TEST(ZipIndex, LinksAndDevices_AreRefused) {
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.mode = S_IFLNK | 0777U; }), "\"x\": is a link");
  for (const mode_t type : {mode_t{S_IFCHR}, mode_t{S_IFBLK}, mode_t{S_IFIFO}, mode_t{S_IFSOCK}}) {
    EXPECT_EQ(failureWith([&](RawEntry& entry) { entry.mode = type | 0666U; }),
              "\"x\": is neither a file nor a directory");
  }
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.mode = S_IFDIR | 0755U; }), "\"x\": is a file and a directory");
  EXPECT_EQ(failureWith([](RawEntry& entry) { entry.name = "x/"; }), "\"x\": is a file and a directory");
  EXPECT_EQ(failureWith([](RawEntry& entry) {
              entry.name = "x/";
              entry.mode = S_IFDIR | 0755U;
            }),
            "\"x\": is a directory with content");
}

TEST(ZipIndex, SetUserIdBits_AreDropped) {
  RawEntry entry = entryOf("x");
  entry.mode = S_IFREG | S_ISUID | S_ISGID | 0644U;
  EXPECT_FALSE(indexOf(zipBytes({entry})).entries[0].executable);
}

TEST(ZipIndex, NamesThatLeaveTheFolder_AreRefused) {
  for (const std::string& name :
       {std::string("../x"), std::string("/x"), std::string("a/../../x"), std::string("a\\b"), std::string("a\0b", 3),
        std::string("//"), std::string("/"), std::string(), std::string(300, 'n'), std::string("a\nb")}) {
    EXPECT_NE(failureOf(zipBytes({entryOf(name, "")})), "") << name;
  }
}

TEST(ZipIndex, DuplicatesAndCaseTricks_AreRefused) {
  EXPECT_EQ(failureOf(zipBytes({entryOf("a"), entryOf("a")})), "\"a\": the name is there twice");
  EXPECT_EQ(failureOf(zipBytes({entryOf("manifest.json"), entryOf("MANIFEST.json")})),
            "\"MANIFEST.json\": the name differs from \"manifest.json\" in case only");
}

TEST(ZipIndex, CountThatDiffers_IsRefused) {
  EXPECT_EQ(failureOf(zipBytes({entryOf("a")}, RawEnd{"", "", 2, 0})),
            "the central directory has 1 entries, its end record says 2");
  EXPECT_EQ(failureOf(zipBytes({entryOf("a")}, RawEnd{"", "", 10001, 0})),
            "has 10001 entries, at most 10000 are allowed");
}

TEST(ZipIndex, DeclaredSizesBeyondTheBounds_AreRefused) {
  const auto declaring = [](std::uint32_t size) {
    RawEntry entry = entryOf("x");
    entry.method = 8;
    entry.size = size;
    return zipBytes({entry});
  };
  EXPECT_EQ(failureOf(declaring(16 << 20)), "");
  const std::string bomb = declaring((16 << 20) + 1);
  EXPECT_EQ(failureOf(bomb), "unpacks to 16777217 bytes, more than 200 times its " + std::to_string(bomb.size()));
  EXPECT_EQ(failureOf(declaring((1U << 30) + 1)), "unpacks to 1073741825 bytes, at most 1073741824 are allowed");
  RawEntry half = entryOf("y");
  half.method = 8;
  half.size = 0xf0000000;
  RawEntry other = half;
  other.name = "z";
  EXPECT_EQ(failureOf(zipBytes({half, other})), "unpacks to 8053063680 bytes, at most 1073741824 are allowed");
}

TEST(ZipIndex, AnyByteChanged_EndsInAnIndexOrAFailure) {
  const std::string whole = zipBytes({entryOf("a"), entryOf("b/c", "content")});
  std::size_t refused = 0;
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const int change : {1, 0x80, 0xff}) {
      std::string bytes = whole;
      bytes[at] = static_cast<char>(bytes[at] ^ change);
      refused += failureOf(bytes).empty() ? 0 : 1;
    }
  }
  EXPECT_GT(refused, whole.size());
}

TEST(ZipIndex, FileThatGrewShorter_IsRefused) {
  const std::string bytes = zipBytes({entryOf("a")});
  const Descriptor file(anonymousFile(bytes.substr(0, bytes.size() - 5)));
  EXPECT_THROW(base::ignore(readZipIndex(file.get(), bytes.size())), Failure);
}

}  // namespace
