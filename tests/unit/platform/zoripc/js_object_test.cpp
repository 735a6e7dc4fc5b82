#include <gtest/gtest.h>
#include <zoripc.h>

#include <climits>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

using zoripc::JSObject;

namespace {

JSObject parsed(const std::string& text) {
  JSObject value(true);
  EXPECT_TRUE(JSObject::parse(text, value)) << text;
  return value;
}

bool refused(const std::string& text) {
  JSObject value(true);
  return !JSObject::parse(text, value) && value.isNull();
}

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

JSObject deep(int levels) {
  JSObject root;
  JSObject* inner = &root;
  for (int i = 0; i < levels; ++i) inner = &(*inner)["a"];
  *inner = JSObject(7);
  return root;
}

}  // namespace

TEST(JSObject, New_IsNull) {
  const JSObject value;
  EXPECT_TRUE(value.isNull());
  EXPECT_EQ(value.dump(), "null");
  EXPECT_EQ(value.size(), 0U);
}

TEST(JSObject, EachKind_IsThatKindAlone) {
  const std::pair<JSObject, std::string> kinds[] = {{JSObject(), "n"},
                                                    {JSObject(true), "b"},
                                                    {JSObject(1), "i"},
                                                    {JSObject(1LL), "i"},
                                                    {JSObject(1.0), "d"},
                                                    {JSObject("x"), "s"},
                                                    {JSObject(std::string("x")), "s"},
                                                    {JSObject::array(), "a"},
                                                    {JSObject::object(), "o"}};
  for (const auto& [value, kind] : kinds) {
    EXPECT_EQ(value.isNull(), kind == "n");
    EXPECT_EQ(value.isBool(), kind == "b");
    EXPECT_EQ(value.isInt(), kind == "i");
    EXPECT_EQ(value.isDouble(), kind == "d");
    EXPECT_EQ(value.isString(), kind == "s");
    EXPECT_EQ(value.isArray(), kind == "a");
    EXPECT_EQ(value.isObject(), kind == "o");
  }
}

TEST(JSObject, NullPointerText_IsNull) {
  const char* none = nullptr;
  EXPECT_TRUE(JSObject(none).isNull());
}

TEST(JSObject, ReadingOfAnotherKind_GivesTheEmptyValue) {
  const JSObject text("5");
  EXPECT_FALSE(text.getBool());
  EXPECT_EQ(text.getInt(), 0);
  EXPECT_EQ(text.getDouble(), 0);
  EXPECT_EQ(JSObject(5).getString(), "");
  EXPECT_FALSE(JSObject(1).getBool());
  EXPECT_EQ(JSObject(true).getInt(), 0);
}

TEST(JSObject, GetInt_ClampsAndTruncatesTowardZero) {
  EXPECT_EQ(JSObject(std::numeric_limits<long long>::max()).getInt(), INT_MAX);
  EXPECT_EQ(JSObject(std::numeric_limits<long long>::min()).getInt(), INT_MIN);
  EXPECT_EQ(JSObject(2147483648LL).getInt(), INT_MAX);
  EXPECT_EQ(JSObject(-2147483649LL).getInt(), INT_MIN);
  EXPECT_EQ(JSObject(INT_MIN).getInt(), INT_MIN);
  EXPECT_EQ(JSObject(2.9).getInt(), 2);
  EXPECT_EQ(JSObject(-2.9).getInt(), -2);
  EXPECT_EQ(JSObject(1e300).getInt(), INT_MAX);
  EXPECT_EQ(JSObject(-HUGE_VAL).getInt(), INT_MIN);
  EXPECT_EQ(JSObject(std::nan("")).getInt(), 0);
}

TEST(JSObject, GetDouble_ReadsBothNumericKinds) {
  EXPECT_EQ(JSObject(3).getDouble(), 3.0);
  EXPECT_EQ(JSObject(0.5).getDouble(), 0.5);
}

TEST(JSObject, WritingAMember_MakesAnObjectOfAnyOtherKind) {
  for (JSObject value : {JSObject(), JSObject(3), JSObject("x"), JSObject::array()}) {
    value["proxy"]["command"] = "info";
    EXPECT_EQ(value.dump(), R"({"proxy":{"command":"info"}})");
  }
}

TEST(JSObject, WritingAccess_AddsAMissingMemberAsNull) {
  JSObject value;
  EXPECT_TRUE(value["a"].isNull());
  EXPECT_TRUE(value.has("a"));
  EXPECT_EQ(value.dump(), R"({"a":null})");
}

TEST(JSObject, ReadingAMissingMember_GivesNullAndAddsNothing) {
  const JSObject value = parsed(R"({"a":1})");
  EXPECT_TRUE(value["b"].isNull());
  EXPECT_TRUE(value[std::string("b")]["c"].isNull());
  EXPECT_FALSE(value.has("b"));
  const JSObject number(1);
  EXPECT_TRUE(number["b"].isNull());
  EXPECT_FALSE(number.has("b"));
}

TEST(JSObject, MissingMember_OutlivesTheObject) {
  const JSObject* missing = nullptr;
  {
    const JSObject value = JSObject::object();
    missing = &value["gone"];
  }
  EXPECT_TRUE(missing->isNull());
}

TEST(JSObject, Has_IsTrueForANullMember) { EXPECT_TRUE(parsed(R"({"a":null})").has("a")); }

TEST(JSObject, Append_MakesAnArrayOfAnyOtherKind) {
  JSObject value("x");
  value.append(JSObject(1));
  value.append(JSObject("two"));
  EXPECT_EQ(value.dump(), R"([1,"two"])");
  EXPECT_EQ(value.size(), 2U);
  EXPECT_EQ(value.at(1).getString(), "two");
  EXPECT_TRUE(value.at(2).isNull());
  EXPECT_TRUE(JSObject(3).at(0).isNull());
}

TEST(JSObject, AppendOfItselfOrAPart_AppendsWhatItWas) {
  JSObject value = parsed("[1]");
  value.append(value);
  EXPECT_EQ(value.dump(), "[1,[1]]");
  JSObject object = parsed(R"({"a":5})");
  object.append(object["a"]);
  EXPECT_EQ(object.dump(), "[5]");
}

TEST(JSObject, Size_CountsElementsAndMembers) {
  EXPECT_EQ(parsed("[1,2,3]").size(), 3U);
  EXPECT_EQ(parsed(R"({"a":1,"b":2})").size(), 2U);
  EXPECT_EQ(parsed(R"("abc")").size(), 0U);
}

TEST(JSObject, Copies_DoNotShare) {
  JSObject first = parsed(R"({"a":{"b":[1,2]}})");
  JSObject second = first;
  second["a"]["b"].append(JSObject(3));
  EXPECT_EQ(first.dump(), R"({"a":{"b":[1,2]}})");
  EXPECT_EQ(second.dump(), R"({"a":{"b":[1,2,3]}})");
  first = JSObject();
  EXPECT_TRUE(first.isNull());
}

TEST(JSObject, Assignment_OfAPartOrOfItself) {
  JSObject value = parsed(R"({"a":{"b":1}})");
  const JSObject& same = value;
  value = same;
  EXPECT_EQ(value.dump(), R"({"a":{"b":1}})");
  value = value["a"];
  EXPECT_EQ(value.dump(), R"({"b":1})");
  value = std::move(value["b"]);
  EXPECT_EQ(value.dump(), "1");
}

TEST(JSObject, MovedFrom_IsNullAndUsable) {
  JSObject from("x");
  const JSObject to(std::move(from));
  EXPECT_TRUE(from.isNull());  // NOLINT(bugprone-use-after-move): that is the statement
  from["a"] = 1;
  EXPECT_EQ(to.getString(), "x");
}

TEST(JSObject, Dump_OrdersMembersByKeyInOneLine) {
  JSObject value;
  value["libmac_version"] = "3.16.5-79";
  value["libmac_cmd"] = "libmac_show_desktop";
  EXPECT_EQ(value.dump(), R"({"libmac_cmd":"libmac_show_desktop","libmac_version":"3.16.5-79"})");
  EXPECT_EQ(parsed("{ \"b\" : [ true , null ],\n \"a\" : 1.5 }").dump(), R"({"a":1.5,"b":[true,null]})");
}

TEST(JSObject, Dump_EscapesWhatJsonDemands) {
  EXPECT_EQ(JSObject(std::string("a\"\\\n\x01\0z", 7)).dump(), R"("a\"\\\n\u0001\u0000z")");
  JSObject value;
  value["k\""] = 1;
  EXPECT_EQ(value.dump(), R"({"k\"":1})");
}

TEST(JSObject, Dump_ReplacesBytesThatAreNotUtf8) {
  EXPECT_EQ(JSObject("a\xff"
                     "b")
                .dump(),
            "\"a\xEF\xBF\xBD"
            "b\"");
  JSObject value;
  value["\xc3"] = 1;
  EXPECT_EQ(value.dump(), "{\"\xEF\xBF\xBD\":1}");
}

TEST(JSObject, Dump_NumbersKeepTheirKind) {
  EXPECT_EQ(JSObject(1.0).dump(), "1.0");
  EXPECT_TRUE(parsed(JSObject(1.0).dump()).isDouble());
  EXPECT_EQ(JSObject(std::numeric_limits<long long>::min()).dump(), "-9223372036854775808");
  EXPECT_EQ(JSObject(HUGE_VAL).dump(), "null");
}

TEST(JSObject, Parse_ReadsEveryKind) {
  const JSObject value =
      parsed(R"( {"s":"\u00e4\ud83d\ude00","i":-5,"d":2.5e1,"t":true,"f":false,"n":null,"a":[{"x":[]}]} )");
  EXPECT_EQ(value["s"].getString(), "\xC3\xA4\xF0\x9F\x98\x80");
  EXPECT_EQ(value["i"].getInt(), -5);
  EXPECT_TRUE(value["d"].isDouble());
  EXPECT_EQ(value["d"].getDouble(), 25);
  EXPECT_TRUE(value["t"].getBool());
  EXPECT_TRUE(value["f"].isBool() && !value["f"].getBool());
  EXPECT_TRUE(value.has("n"));
  EXPECT_TRUE(value["a"].at(0)["x"].isArray());
}

// A text is taken apart as it is looked into.
TEST(JSObject, Parse_TellsPartsApartWhateverStandsInTheirStrings) {
  const JSObject value = parsed(
      "\t{\"a]}\":\"\\\"]},\" ,\r\n \"b\\\\\" : [ \"[{\" , \"\\\\\",{\"}\":-1.5e3},[],{} ,[[2]]] ,\"c\":{ },\"d\": "
      "5\n,\"e\":false,\"\":\"\"} ");
  EXPECT_EQ(value.size(), 6U);
  EXPECT_EQ(value["a]}"].getString(), "\"]},");
  const JSObject& list = value["b\\"];
  ASSERT_EQ(list.size(), 6U);
  EXPECT_EQ(list.at(0).getString(), "[{");
  EXPECT_EQ(list.at(1).getString(), "\\");
  EXPECT_EQ(list.at(2)["}"].getDouble(), -1500);
  EXPECT_TRUE(list.at(3).isArray() && !list.at(3).isObject());
  EXPECT_EQ(list.at(3).size(), 0U);
  EXPECT_TRUE(list.at(4).isObject() && !list.at(4).isArray());
  EXPECT_EQ(list.at(5).at(0).at(0).getInt(), 2);
  EXPECT_EQ(value["c"].size(), 0U);
  EXPECT_EQ(value["d"].getInt(), 5);
  EXPECT_TRUE(value["e"].isBool());
  EXPECT_TRUE(value[""].isString());
}

TEST(JSObject, LookingIntoAText_ChangesNothingThatIsWritten) {
  const std::string text = R"( {"b": [1, {"x": [[], {"y": "]"}], "a": null}, [2, [3]]], "a": {"c": {}}, "b2": []} )";
  const std::string written = R"({"a":{"c":{}},"b":[1,{"a":null,"x":[[],{"y":"]"}]},[2,[3]]],"b2":[]})";
  const JSObject value = parsed(text);
  EXPECT_EQ(value.dump(), written);
  EXPECT_EQ(value["b"].at(1)["x"].at(1)["y"].getString(), "]");
  EXPECT_EQ(value.dump(), written);
  const JSObject copy = value;  // NOLINT(performance-unnecessary-copy-initialization): the copy is what is tested
  EXPECT_EQ(copy["b"].at(2).at(1).at(0).getInt(), 3);
  EXPECT_EQ(copy.dump(), written);
  EXPECT_EQ(value.dump(), written);
}

TEST(JSObject, PartOfAText_OutlivesIt) {
  JSObject part;
  {
    const JSObject value = parsed(R"({"a":{"b":[1,2]}})");
    part = value["a"];
  }
  part["c"] = parsed("[3]");
  EXPECT_EQ(part.dump(), R"({"b":[1,2],"c":[3]})");
}

TEST(JSObject, Parse_ScalarsStandAlone) {
  EXPECT_EQ(parsed("7").getInt(), 7);
  EXPECT_EQ(parsed(" -7\n").getInt(), -7);
  EXPECT_EQ(parsed("\"x\"").getString(), "x");
  EXPECT_TRUE(parsed("null").isNull());
}

TEST(JSObject, Parse_LargeIntegers) {
  EXPECT_EQ(parsed("9223372036854775807").dump(), "9223372036854775807");
  EXPECT_EQ(parsed("-9223372036854775808").dump(), "-9223372036854775808");
  EXPECT_TRUE(parsed("9223372036854775808").isDouble());
  EXPECT_EQ(parsed("9223372036854775808").getInt(), INT_MAX);
}

TEST(JSObject, Parse_OfRepeatedNames_KeepsTheLast) {
  EXPECT_EQ(parsed(R"({"a":1,"a":{"b":2},"c":3})").dump(), R"({"a":{"b":2},"c":3})");
}

TEST(JSObject, Parse_RefusesWhatIsNotJson) {
  for (const char* text :
       {"",         " ",     "{",   "}",       "[1",  "[1,]",        R"({"a"})", R"({"a":})", R"({"a":1,})",
        "{a:1}",    "'a'",   "nul", "01",      "1.",  "+1",          "\"\n\"",   R"("\x")",   "\"a",
        "\"\xff\"", "[] []", "{}x", "// c\n1", "NaN", R"("\ud800")", "1e999"}) {
    EXPECT_TRUE(refused(text)) << text;
  }
}

TEST(JSObject, Parse_RefusesAZeroByteAnywhere) {
  EXPECT_TRUE(refused(std::string("{}\0", 3)));
  EXPECT_TRUE(refused(std::string("{}\0garbage", 10)));
  EXPECT_TRUE(refused(std::string("\"a\0\"", 4)));
}

TEST(JSObject, Parse_CutAnywhere_IsRefused) {
  const std::string text = R"({"proxy":{"command":"info","list":[1,2.5,"x\u0041"],"ok":true}})";
  for (std::size_t length = 0; length < text.size(); ++length) EXPECT_TRUE(refused(text.substr(0, length))) << length;
  EXPECT_FALSE(refused(text));
}

TEST(JSObject, Parse_DepthOfAHundred_IsTheLimit) {
  EXPECT_EQ(parsed(nested(100)).dump(), nested(100));
  EXPECT_TRUE(refused(nested(101)));
  std::string objects = "1";
  for (int i = 0; i < 100; ++i) objects = R"({"a":)" + objects + "}";
  EXPECT_EQ(parsed(objects).dump(), objects);
  EXPECT_TRUE(refused(R"({"a":)" + objects + "}"));
  EXPECT_EQ(parsed("[" + nested(99) + "," + nested(99) + "]").size(), 2U);
}

TEST(JSObject, Parse_OfAMillionBrackets_IsRefused) {
  EXPECT_TRUE(refused(std::string(1000000, '[')));
  EXPECT_TRUE(refused(nested(1000000)));
}

TEST(JSObject, TreesDeeperThanTheStack_AreCopiedWrittenAndDestroyed) {
  constexpr int kLevels = 300000;
  JSObject value = deep(kLevels);
  const JSObject copy = value;
  value = JSObject(1);
  const std::string text = copy.dump();
  EXPECT_EQ(text.size(), static_cast<std::size_t>(kLevels) * 6 + 1);
  EXPECT_EQ(text.substr(text.size() - 4), "}}}}");
}

TEST(JSObject, DumpAndParse_AreInverse) {
  JSObject list = JSObject::array();
  for (int byte = 0; byte < 128; ++byte) {
    JSObject entry;
    entry["if_name"] = std::string(1, static_cast<char>(byte));
    entry["url"] = "http://x/";
    list.append(entry);
  }
  const JSObject back = parsed(list.dump());
  ASSERT_EQ(back.size(), 128U);
  for (int byte = 0; byte < 128; ++byte) {
    EXPECT_EQ(back.at(static_cast<std::size_t>(byte))["if_name"].getString(), std::string(1, static_cast<char>(byte)));
  }
}
