#include "platform/linux/zorguiprt/screen_json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "base/ignore.h"
#include "platform/linux/support/failure.h"

using jxplatform::kLargestId;
using jxplatform::PageResult;
using jxplatform::parseNumber;
using jxplatform::parseResult;
using jxplatform::screenJson;
using testing::HasSubstr;

namespace {

std::string refusalOf(const std::string& body) {
  try {
    base::ignore(parseResult(body));
    return "accepted";
  } catch (const jxplatform::Failure& failure) {
    return failure.what();
  }
}

}  // namespace

TEST(ScreenJson, Members_StandInTheirOrder) {
  EXPECT_EQ(screenJson(7, true, {"mainmenu.html", {{"b", "2"}, {"a", "<\"\n>"}}, "<p>\xC3\xA9</p>"}),
            "{\"id\":7,\"page\":\"mainmenu.html\",\"sync\":true,\"vars\":{\"a\":\"<\\\"\\n>\",\"b\":\"2\"},\"html\":\"<"
            "p>\xC3\xA9</p>\"}");
  EXPECT_EQ(screenJson(kLargestId, false, {"p", {}, ""}),
            R"({"id":9007199254740991,"page":"p","sync":false,"vars":{},"html":""})");
}

TEST(ScreenJson, BytesThatAreNotUtf8_AreReplaced) {
  EXPECT_EQ(screenJson(1, true, {"p", {{"v", "a\xFFz"}}, "\xC3"}),
            "{\"id\":1,\"page\":\"p\",\"sync\":true,\"vars\":{\"v\":\"a\xEF\xBF\xBDz\"},\"html\":\"\xEF\xBF\xBD\"}");
}

TEST(ParseResult, ResultAndVariables_AreRead) {
  const PageResult result = parseResult(R"( {"vars":{"loglevel":"3","cert":null,"":"e"},"result":-1} )");
  EXPECT_EQ(result.result, -1);
  ASSERT_EQ(result.vars.size(), 3U);
  EXPECT_EQ(result.vars.at("loglevel"), "3");
  EXPECT_EQ(result.vars.at("cert"), std::nullopt);
  EXPECT_EQ(result.vars.at(""), "e");
}

TEST(ParseResult, VariablesMayBeLeftOut) {
  EXPECT_EQ(parseResult(R"({"result":2147483647})").result, 2147483647);
  EXPECT_EQ(parseResult(R"({"result":-2147483648})").result, -2147483647 - 1);
  EXPECT_EQ(refusalOf(R"({"result":0,"vars":{}})"), "accepted");
}

TEST(ParseResult, MalformedJson_IsRefusedWithItsPlace) {
  EXPECT_THAT(refusalOf(""), HasSubstr("not JSON"));
  EXPECT_EQ(refusalOf("{\"result\":1"), "the body is not JSON, from byte 12 on");
  EXPECT_THAT(refusalOf("{\"result\":1} x"), HasSubstr("not JSON"));
  EXPECT_THAT(refusalOf("{\"result\":01}"), HasSubstr("not JSON"));
  EXPECT_THAT(refusalOf("{\"result\":1,\"vars\":{\"a\":\"\xFF\"}}"), HasSubstr("not JSON"));
  EXPECT_THAT(refusalOf(std::string("{\"result\":1}\0", 13)), HasSubstr("not JSON"));
  EXPECT_THAT(refusalOf(std::string(100000, '[')), HasSubstr("not JSON"));
}

TEST(ParseResult, NumberBeyondDouble_IsRefused) {
  EXPECT_EQ(refusalOf(R"({"result":1e999})"), "the body has a number beyond the range of double");
  EXPECT_EQ(refusalOf(R"({"result":1,"vars":{"a":-1e400}})"), "the body has a number beyond the range of double");
}

TEST(ParseResult, OtherKinds_AreRefusedWithAReason) {
  EXPECT_EQ(refusalOf("[]"), "the body is not a JSON object");
  EXPECT_EQ(refusalOf("1"), "the body is not a JSON object");
  EXPECT_EQ(refusalOf("null"), "the body is not a JSON object");
  EXPECT_EQ(refusalOf("{}"), "\"result\" is missing");
  EXPECT_EQ(refusalOf(R"({"vars":{}})"), "\"result\" is missing");
  EXPECT_EQ(refusalOf(R"({"result":1,"more":2})"), "\"more\" is neither \"result\" nor \"vars\"");
  for (const char* const value : {"\"1\"", "1.0", "1e3", "null", "true", "[]", "{}", "2147483648", "-2147483649",
                                  "18446744073709551615", "99999999999999999999999"}) {
    EXPECT_EQ(refusalOf(std::string("{\"result\":") + value + "}"), "\"result\" is not an integer of 32 bits") << value;
  }
  for (const char* const value : {"null", "[]", "\"\"", "1"}) {
    EXPECT_EQ(refusalOf(std::string("{\"result\":1,\"vars\":") + value + "}"), "\"vars\" is not an object") << value;
  }
  for (const char* const value : {"1", "true", "[]", "{}", "1.5"}) {
    EXPECT_EQ(refusalOf(std::string("{\"result\":1,\"vars\":{\"a\":") + value + "}}"),
              "\"vars\": the value of \"a\" is neither a string nor null")
        << value;
  }
}

TEST(ParseResult, BodyCutAtEveryByte_IsRefused) {
  const std::string body = R"({"result":-1,"vars":{"a":"b","c":null}})";
  for (std::size_t size = 0; size < body.size(); ++size) EXPECT_NE(refusalOf(body.substr(0, size)), "accepted") << size;
  EXPECT_EQ(refusalOf(body), "accepted");
}

TEST(ParseNumber, Digits_AreANumber) {
  EXPECT_EQ(parseNumber("0"), 0U);
  EXPECT_EQ(parseNumber("0007"), 7U);
  EXPECT_EQ(parseNumber("9007199254740991"), kLargestId);
}

TEST(ParseNumber, AnythingElse_IsNone) {
  for (const char* const text :
       {"", "-1", "+1", " 1", "1 ", "1.0", "1e3", "0x1", "x", "9007199254740992", "99999999999999999999999999"}) {
    EXPECT_EQ(parseNumber(text), std::nullopt) << text;
  }
}
