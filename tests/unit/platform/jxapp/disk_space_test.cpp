#include "platform/linux/jxapp/disk_space.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "base/descriptor.h"
#include "platform/linux/jxapp/failure.h"
#include "tests/unit/platform/jxapp/scratch.h"
#include "tests/unit/platform/jxapp/system_calls.h"

namespace {

using jxinstall::Package;

struct Disk {
  unsigned long blockBytes;
  unsigned long freeBlocks;
  unsigned long fileEntries;  // 0: the file system counts none
  unsigned long freeFileEntries;
};

// A package with these files, and an entry for the folder "a".
Package packageOf(const std::map<std::string, std::uint64_t>& files) {
  Package package;
  package.index.entries.push_back({"a", true, false, 0});
  for (const auto& [name, size] : files) {
    package.index.entries.push_back({name, false, false, size});
    package.manifest.files.emplace(name, "");
  }
  return package;
}

// What is wrong with putting the package on the disk; empty when nothing is.
std::string problem(const Package& package, const Disk& disk) {
  const Scratch root;
  const base::Descriptor folder(open(root.path().c_str(), O_RDONLY | O_DIRECTORY));
  SystemCalls calls;
  calls.disk = [&](struct statvfs& status) {
    status.f_frsize = disk.blockBytes;
    status.f_bavail = disk.freeBlocks;
    status.f_files = disk.fileEntries;
    status.f_favail = disk.freeFileEntries;
  };
  try {
    checkDiskSpace(folder.get(), package);
    return "";
  } catch (const jxinstall::Failure& failure) {
    return failure.what();
  }
}

// Four folders take a block each: the application's own, a, a/b and c. The files take one, none, two and one.
const std::map<std::string, std::uint64_t> kFiles = {
    {"a/b/one", 1}, {"a/b/none", 0}, {"c/more", 1025}, {"exact", 1024}};

TEST(DiskSpace, Blocks_AreCountedForFilesAndFolders) {
  const Package package = packageOf(kFiles);
  EXPECT_EQ(problem(package, {1024, 8, 100, 100}), "");
  EXPECT_EQ(problem(package, {1024, 7, 100, 100}), "needs 8192 bytes on the disk, 7168 are free");
  EXPECT_EQ(problem(package, {1024, 0, 100, 100}), "needs 8192 bytes on the disk, 0 are free");
}

TEST(DiskSpace, FileEntries_AreCountedForFilesAndFolders) {
  const Package package = packageOf(kFiles);
  EXPECT_EQ(problem(package, {1024, 100, 100, 8}), "");
  EXPECT_EQ(problem(package, {1024, 100, 100, 7}), "needs 8 file entries on the disk, 7 are free");
  EXPECT_EQ(problem(package, {1024, 100, 1, 0}), "needs 8 file entries on the disk, 0 are free");
}

TEST(DiskSpace, FileSystemThatCountsNoEntries_HasNoBound) {
  EXPECT_EQ(problem(packageOf(kFiles), {1024, 100, 0, 0}), "");
}

TEST(DiskSpace, FileSystemWithoutBlocks_IsCountedInBytes) {
  EXPECT_EQ(problem(packageOf(kFiles), {0, 2054, 0, 0}), "");
  EXPECT_EQ(problem(packageOf(kFiles), {0, 2053, 0, 0}), "needs 2054 bytes on the disk, 2053 are free");
}

TEST(DiskSpace, BeyondFourGigabytes_IsCountedWhole) {
  const Package package = packageOf({{"big", std::uint64_t{5} << 30}});
  EXPECT_EQ(problem(package, {4096, 1 << 20, 0, 0}), "needs 5368713216 bytes on the disk, 4294967296 are free");
}

TEST(DiskSpace, DiskThatDoesNotTell_IsAFailure) {
  SystemCalls calls;
  calls.fail("fstatvfs", EIO);
  const Scratch root;
  const base::Descriptor folder(open(root.path().c_str(), O_RDONLY | O_DIRECTORY));
  try {
    checkDiskSpace(folder.get(), packageOf({}));
    ADD_FAILURE();
  } catch (const jxinstall::Failure& failure) {
    EXPECT_STREQ(failure.what(), "the free space cannot be told: Input/output error");
  }
}

}  // namespace
