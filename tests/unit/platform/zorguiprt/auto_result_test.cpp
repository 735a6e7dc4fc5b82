#include "platform/linux/zorguiprt/auto_result.h"

#include <gtest/gtest.h>

using jxplatform::autoResult;

namespace {

TEST(AutoResult, AttributeOfThePage_IsItsResult) {
  EXPECT_EQ(autoResult(R"(<body><section class="content" data-auto-result="0">x</section></body>)"), 0);
  EXPECT_EQ(autoResult("<body\ndata-auto-result=\"7\">"), 7);
  EXPECT_EQ(autoResult("<body data-auto-result=\"-1\"><?js print('x') ?>"), -1);
  EXPECT_EQ(autoResult("<?var a?><p data-auto-result=\"2147483647\"><?var a?>"), 2147483647);
}

TEST(AutoResult, AnythingElse_IsNone) {
  for (const char* page :
       {"", "<body>", R"(<body auto-result="0">)", R"(<body data-auto-results="0">)",
        R"(<body x-data-auto-result="0">)", R"(data-auto-result="0">)", R"(<body data-auto-result="">)",
        R"(<body data-auto-result="x">)", R"(<body data-auto-result="0x">)", R"(<body data-auto-result="2147483648">)",
        R"(<body data-auto-result="0)", "<body data-auto-result='0'>"}) {
    EXPECT_EQ(autoResult(page), std::nullopt) << page;
  }
}

// What stands in an instruction is shown, or not, as its variables will have it.
TEST(AutoResult, AttributeInOrThroughAnInstruction_IsNone) {
  EXPECT_EQ(autoResult(R"(<?js print('<p data-auto-result="0">') ?>)"), std::nullopt);
  EXPECT_EQ(autoResult(R"(<?js print('<p data-auto-result="0">'))"), std::nullopt);
  EXPECT_EQ(autoResult(R"(<p data-auto-result="<?var a?>">)"), std::nullopt);
  EXPECT_EQ(autoResult(R"(<?var a?><?js data-auto-result="1" ?><p data-auto-result="2">)"), 2);
}

}  // namespace
