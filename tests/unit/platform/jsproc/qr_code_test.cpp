#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jsproc.h>

#include <string>

using testing::HasSubstr;
using testing::StartsWith;

// That a scanner reads the text off the picture is a test of the browser's (tests/browser/following.test.js).

namespace {

std::string qr(const std::string& text) {
  std::string output;
  std::map<std::string, std::string> vars{{"text", text}};
  EXPECT_TRUE(js::jsProcessorExt(nullptr, "print(qr(vars.text))", vars, output)) << output;
  return output;
}

}  // namespace

TEST(QrCode, Url_IsAPictureNamedByIt) {
  const std::string svg = qr("http://192.168.1.20:6370");
  EXPECT_THAT(svg, StartsWith("<svg class=\"qr\" viewBox=\"0 0 33 33\""));  // version 2: 25 modules and the quiet zone
  EXPECT_THAT(svg, HasSubstr("role=\"img\" aria-label=\"QR code: http://192.168.1.20:6370\""));
  EXPECT_THAT(svg, HasSubstr("<rect width=\"33\" height=\"33\" fill=\"#fff\"/>"));
  EXPECT_THAT(svg, testing::EndsWith("</svg>"));
}

TEST(QrCode, FirstRow_HasTwoFinderPatternsBehindTheQuietZone) {
  const std::string svg = qr("A");  // version 1: 21 modules
  EXPECT_THAT(svg, HasSubstr("d=\"M4 4h7v1h-7z"));
  EXPECT_THAT(svg, HasSubstr("M18 4h7v1h-7zM4 5h1v1h-1zM10 5h1v1h-1z"));
}

TEST(QrCode, Markup_IsEscapedInItsName) {
  EXPECT_THAT(qr("\"><script>"), HasSubstr("aria-label=\"QR code: &quot;&gt;&lt;script&gt;\""));
}

TEST(QrCode, OtherCharacters_StandInItsName) {
  EXPECT_THAT(qr("\xC3\xBC \xF0\x9F\x98\x80"), HasSubstr("\"QR code: \xC3\xBC \xF0\x9F\x98\x80\""));
}

TEST(QrCode, LongestText_Fits) { EXPECT_THAT(qr(std::string(2953, 'x')), StartsWith("<svg")); }

TEST(QrCode, LongerText_IsNothing) { EXPECT_EQ(qr(std::string(2954, 'x')), ""); }

TEST(QrCode, EmptyText_IsNothing) { EXPECT_EQ(qr(""), ""); }

TEST(QrCode, WithoutText_IsTheWordThatJavaScriptHasForIt) {
  std::string output;
  std::map<std::string, std::string> vars;
  EXPECT_TRUE(js::jsProcessorExt(nullptr, "print(qr())", vars, output));
  EXPECT_THAT(output, HasSubstr("QR code: undefined"));
}
