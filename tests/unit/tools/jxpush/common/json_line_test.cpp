#include "tools/jxpush/common/json_line.h"

#include <gtest/gtest.h>

using jxpush::jsonLine;

TEST(JsonLine, IsOneLineOfUtf8) {
  EXPECT_EQ(jsonLine({{"a", "x\n\"\x1b"}, {"b", 1}}), "{\"a\":\"x\\n\\\"\\u001b\",\"b\":1}");
  EXPECT_EQ(jsonLine({{"a", "\xC3\x96"}}), "{\"a\":\"\xC3\x96\"}");
  EXPECT_EQ(jsonLine({{"a", "\xff."}}), "{\"a\":\"\xEF\xBF\xBD.\"}");
}
