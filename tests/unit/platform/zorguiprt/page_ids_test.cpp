#include "platform/linux/zorguiprt/page_ids.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <fstream>
#include <string>

#include "platform/linux/zorguiprt/screen_json.h"
#include "tests/support/platform_root.h"

using jxplatform::PageIds;

namespace {

class Ids : public testing::Test {
 protected:
  void TearDown() override { std::remove(file.c_str()); }

  void write(const std::string& content) const { std::ofstream(file) << content; }

  const std::string file = platformRoot() + "/screen.run";
};

}  // namespace

TEST_F(Ids, Ids_Rise) {
  PageIds ids(file);
  std::uint64_t last = 0;
  for (int i = 0; i < 1000; ++i) {
    const std::uint64_t id = ids.next();
    EXPECT_GT(id, last);
    last = id;
  }
  EXPECT_LE(last, jxplatform::kLargestId);
}

TEST_F(Ids, NextRun_IsAboveTheOneBefore) {
  std::uint64_t last = 0;
  for (int run = 0; run < 5; ++run) {
    PageIds ids(file);
    EXPECT_GT(ids.next(), last);
    last = ids.next();
  }
}

TEST_F(Ids, RunAfterTheClockWentBack_IsAboveTheOneBefore) {
  const std::uint64_t future = static_cast<std::uint64_t>(std::time(nullptr)) + 1'000'000;
  write(std::to_string(future) + "\n");
  EXPECT_EQ(PageIds(file).next(), (future + 1) * PageIds::kIdsPerRun);
}

TEST_F(Ids, RunOfMorePages_TakesTheNextNumber) {
  PageIds ids(file);
  std::uint64_t last = ids.next();
  for (std::uint64_t i = 1; i <= PageIds::kIdsPerRun; ++i) {
    const std::uint64_t id = ids.next();
    ASSERT_GT(id, last);
    last = id;
  }
  EXPECT_GT(PageIds(file).next(), last);
}

TEST_F(Ids, FileThatIsNoNumber_IsAsGoodAsNone) {
  for (const char* const content : {"", "x", "-5", "99999999999999999999999", "9999999999999", "1.5e300"}) {
    write(content);
    const auto now = static_cast<std::uint64_t>(std::time(nullptr));
    const std::uint64_t id = PageIds(file).next();
    EXPECT_GE(id / PageIds::kIdsPerRun, now) << content;
    EXPECT_LE(id, jxplatform::kLargestId) << content;
  }
}

TEST_F(Ids, FileThatCannotBeWritten_StillGivesRisingIds) {
  PageIds ids("/nonexistent/screen.run");
  const std::uint64_t first = ids.next();
  EXPECT_GT(ids.next(), first);
}
