#include "platform/linux/jxapp/manifest.h"

#include <gtest/gtest.h>

#include "base/ignore.h"
#include "platform/linux/jxapp/failure.h"

namespace {

using jxinstall::Failure;
using jxinstall::isApplicationName;
using jxinstall::isApplicationVersion;
using jxinstall::Manifest;
using jxinstall::parseManifest;

const std::string kDigest = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

std::string failureOf(const std::string& bytes) {
  try {
    base::ignore(parseManifest(bytes));
    return "";
  } catch (const Failure& failure) {
    return failure.what();
  }
}

// A manifest whose "files" is as given.
std::string withFiles(const std::string& files) { return R"({"name":"a","version":"1","files":)" + files + "}"; }

TEST(Manifest, AllMembers_AreRead) {
  const Manifest manifest = parseManifest(R"({"name":"hello","version":"1.0.0","description":"Says \u00e9",)"
                                          R"("files":{"bin/hello":")" +
                                          kDigest + R"(","x":")" + kDigest + R"("}})");
  EXPECT_EQ(manifest.name, "hello");
  EXPECT_EQ(manifest.version, "1.0.0");
  EXPECT_EQ(manifest.description, "Says \xc3\xa9");
  EXPECT_EQ(manifest.files, (std::map<std::string, std::string>{{"bin/hello", kDigest}, {"x", kDigest}}));
}

TEST(Manifest, NoDescriptionNoFilesUnknownMembers_AreTaken) {
  EXPECT_EQ(failureOf(withFiles("{}")), "");
  EXPECT_EQ(failureOf(R"({"name":"a","version":"1","files":{},"later":{"x":[1,{"x":2}]}})"), "");
}

TEST(Manifest, Removal_HasNeitherVersionNorFiles) {
  const Manifest manifest = parseManifest(R"({"name":"hello","remove":true})");
  EXPECT_EQ(manifest.name, "hello");
  EXPECT_TRUE(manifest.remove);
  EXPECT_EQ(failureOf(R"({"name":"a","remove":true,"version":"1"})"),
            "manifest.json: asks for a removal, but has \"version\"");
  EXPECT_EQ(failureOf(R"({"name":"a","remove":true,"files":{}})"),
            "manifest.json: asks for a removal, but has \"files\"");
  EXPECT_EQ(failureOf(R"({"name":"A","remove":true})"),
            "manifest.json: the name \"A\" is not [a-z0-9][a-z0-9._-]{0,63}");
  EXPECT_EQ(failureOf(R"({"name":"a","remove":"true"})"), "manifest.json: \"remove\" is neither true nor false");
  EXPECT_FALSE(parseManifest(R"({"name":"a","version":"1","files":{},"remove":false})").remove);
}

TEST(Manifest, CutAnywhere_IsNotJson) {
  const std::string whole = R"({"name":"hello","version":"1","description":"d","files":{"a":")" + kDigest + "\"}}";
  ASSERT_EQ(failureOf(whole), "");
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_EQ(failureOf(whole.substr(0, size)).rfind("manifest.json: is not JSON at byte ", 0), 0U) << size;
  }
}

TEST(Manifest, NotAnObject_IsRefused) {
  for (const char* text : {"[]", "1", "\"x\"", "null", "true"}) {
    EXPECT_EQ(failureOf(text), "manifest.json: is not a JSON object") << text;
  }
  EXPECT_EQ(failureOf("{} x"), "manifest.json: is not JSON at byte 4");
}

TEST(Manifest, ZeroByte_IsNoEndOfTheText) {
  const std::string whole = R"({"name":"hello","version":"1.0.0","files":{}})";
  ASSERT_EQ(failureOf(whole), "");
  const std::string zero(1, '\0');
  EXPECT_EQ(failureOf(whole + zero), "manifest.json: is not JSON at byte 46");
  EXPECT_EQ(failureOf(whole + zero + "garbage"), "manifest.json: is not JSON at byte 46");
  for (std::size_t at = 0; at <= whole.size(); ++at) {
    EXPECT_EQ(failureOf(std::string(whole).insert(at, zero)),
              "manifest.json: is not JSON at byte " + std::to_string(at + 1));
  }
}

TEST(Manifest, NumberBeyondDouble_IsRefused) {
  for (const char* text : {R"({"name":1e999})", "-1e999", R"({"name":"a","later":[1e400]})"}) {
    EXPECT_EQ(failureOf(text), "manifest.json: has a number beyond the range of double") << text;
  }
}

TEST(Manifest, MissingOrMistypedMember_IsNamed) {
  EXPECT_EQ(failureOf("{}"), "manifest.json: has no \"name\"");
  EXPECT_EQ(failureOf(R"({"name":"a"})"), "manifest.json: has no \"version\"");
  EXPECT_EQ(failureOf(R"({"name":"a","version":"1"})"), "manifest.json: has no \"files\"");
  EXPECT_EQ(failureOf(R"({"name":1})"), "manifest.json: \"name\" is not a string");
  EXPECT_EQ(failureOf(R"({"name":"a","version":1.0})"), "manifest.json: \"version\" is not a string");
  EXPECT_EQ(failureOf(R"({"name":"a","version":"1","description":[],"files":{}})"),
            "manifest.json: \"description\" is not a string");
  EXPECT_EQ(failureOf(withFiles("[]")), "manifest.json: \"files\" is not an object");
  EXPECT_EQ(failureOf(withFiles("null")), "manifest.json: \"files\" is not an object");
}

TEST(Manifest, AKeyTwice_IsRefusedAtEveryDepth) {
  EXPECT_EQ(failureOf(R"({"name":"a","name":"b","version":"1","files":{}})"),
            "manifest.json: the key \"name\" stands twice");
  EXPECT_EQ(failureOf(withFiles(R"({"x":")" + kDigest + R"(","x":")" + kDigest + "\"}")),
            "manifest.json: the key \"x\" stands twice");
  EXPECT_EQ(failureOf(R"({"name":"a","version":"1","files":{},"z":[{"y":1},{"y":1,"y":2}]})"),
            "manifest.json: the key \"y\" stands twice");
}

TEST(Manifest, NestedWithoutBound_IsRefused) {
  const std::string deep(100000, '[');
  EXPECT_EQ(failureOf(R"({"x":)" + deep), "manifest.json: nested more than 16 deep");
}

TEST(Manifest, DescriptionWithControlCharactersOrTooLong_IsRefused) {
  EXPECT_EQ(failureOf(R"({"name":"a","version":"1","description":"a\nb","files":{}})"),
            "manifest.json: \"description\" has a control character");
  const auto described = [](std::size_t size) {
    return R"({"name":"a","version":"1","files":{},"description":")" + std::string(size, 'x') + "\"}";
  };
  EXPECT_EQ(failureOf(described(1024)), "");
  EXPECT_EQ(failureOf(described(1025)), "manifest.json: \"description\" has 1025 bytes, at most 1024 are allowed");
}

TEST(Manifest, FileThatIsNoneOrHasNoDigest_IsNamed) {
  EXPECT_EQ(failureOf(withFiles(R"({"../x":")" + kDigest + "\"}")),
            "manifest.json: \"../x\": the name has the component \"..\"");
  EXPECT_EQ(failureOf(withFiles(R"({"manifest.json":")" + kDigest + "\"}")), "manifest.json: lists \"manifest.json\"");
  EXPECT_EQ(failureOf(withFiles(R"({"manifest.json.p7s":")" + kDigest + "\"}")),
            "manifest.json: lists \"manifest.json.p7s\"");
  const std::string noDigest = "manifest.json: \"x\": the digest is not 64 lower-case hex digits";
  for (const std::string& digest : {std::string(R"("")"), std::string("1"), '"' + kDigest.substr(1) + '"',
                                    '"' + kDigest + "0\"", "\"A" + kDigest.substr(1) + '"', std::string("null")}) {
    EXPECT_EQ(failureOf(withFiles(R"({"x":)" + digest + "}")), noDigest) << digest;
  }
}

TEST(Manifest, WrongNameOrVersion_IsShownWithTheRule) {
  EXPECT_EQ(failureOf(R"({"name":"../x","version":"1","files":{}})"),
            "manifest.json: the name \"../x\" is not [a-z0-9][a-z0-9._-]{0,63}");
  EXPECT_EQ(failureOf(R"({"name":"x","version":"1\u0000","files":{}})"),
            "manifest.json: the version \"1?\" is not [0-9A-Za-z][0-9A-Za-z.+~-]{0,63}");
}

TEST(ApplicationName, Rule_HoldsAtItsEdges) {
  for (const std::string& name : {std::string("a"), std::string("0"), std::string("a.b_c-d"), std::string(64, 'z')}) {
    EXPECT_TRUE(isApplicationName(name)) << name;
  }
  for (const std::string& name :
       {std::string(), std::string("A"), std::string("aB"), std::string(".a"), std::string("-a"), std::string("_a"),
        std::string("a/b"), std::string("a b"), std::string("a+b"), std::string("a\0", 2), std::string("a\n"),
        std::string(65, 'z'), std::string("\xc3\xa9")}) {
    EXPECT_FALSE(isApplicationName(name)) << name;
  }
}

TEST(ApplicationVersion, Rule_HoldsAtItsEdges) {
  for (const std::string& version :
       {std::string("1"), std::string("Z"), std::string("1.0+a~b-C"), std::string(64, '9')}) {
    EXPECT_TRUE(isApplicationVersion(version)) << version;
  }
  for (const std::string& version : {std::string(), std::string(".1"), std::string("-1"), std::string("1_0"),
                                     std::string("1 0"), std::string("1\0", 2), std::string(65, '9')}) {
    EXPECT_FALSE(isApplicationVersion(version)) << version;
  }
}

}  // namespace
