#include "tools/jxpush/http/multipart_body.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <set>

#include "tests/unit/tools/jxpush/test_files.h"

using namespace jxpush;

namespace {

std::string bodyOf(const TestFiles& files, const std::vector<std::string>& contents, const MultipartBody& body) {
  std::string text = body.head(0);
  for (std::size_t i = 0; i < files.files().size(); ++i) text += contents[i] + body.tail(i);
  return text;
}

std::string dispositionOf(const std::string& name) {
  TestFiles files;
  files.add(name, "");
  const std::string head = MultipartBody(files.files(), "B").head(0);
  const std::string before = "--B\r\nContent-Disposition: ";
  EXPECT_EQ(0U, head.find(before));
  return head.substr(before.size(), head.find("\r\n", before.size()) - before.size());
}

}  // namespace

TEST(MultipartBody, OneFile_IsFramed) {
  TestFiles files;
  files.add("a.zip", "content");
  const MultipartBody body(files.files(), "XyZ");
  EXPECT_EQ("multipart/form-data; boundary=XyZ", body.contentType());
  EXPECT_EQ(
      "--XyZ\r\nContent-Disposition: form-data; name=\"upload\"; filename=\"a.zip\"\r\n"
      "Content-Type: application/octet-stream\r\n\r\ncontent\r\n--XyZ--\r\n",
      bodyOf(files, {"content"}, body));
}

TEST(MultipartBody, SeveralFiles_FollowEachOther) {
  TestFiles files;
  files.add("a", "one");
  files.add("b", "");
  const MultipartBody body(files.files(), "B");
  const std::string fields = "\"\r\nContent-Type: application/octet-stream\r\n\r\n";
  EXPECT_EQ("--B\r\nContent-Disposition: form-data; name=\"upload\"; filename=\"a" + fields +
                "one\r\n--B\r\nContent-Disposition: form-data; name=\"upload\"; filename=\"b" + fields +
                "\r\n--B--\r\n",
            bodyOf(files, {"one", ""}, body));
}

TEST(MultipartBody, Size_IsThatOfTheWholeBody) {
  TestFiles files;
  std::vector<std::string> contents;
  for (const char* content : {"", "x", "some content"}) {
    files.add("file" + std::to_string(contents.size()), content);
    contents.emplace_back(content);
    const MultipartBody body(files.files(), randomBoundary());
    EXPECT_EQ(bodyOf(files, contents, body).size(), body.size());
  }
}

TEST(MultipartBody, FileBeyond4GiB_IsCounted) {
  TestFiles files;
  files.add("huge", "");
  ASSERT_EQ(0, truncate(files.path("huge").c_str(), off_t{5} << 30));
  std::vector<InputFile> huge;
  huge.emplace_back(files.path("huge"));
  const MultipartBody body(huge, "B");
  EXPECT_EQ((std::uint64_t{5} << 30) + body.head(0).size() + body.tail(0).size(), body.size());
}

TEST(MultipartBody, BodyBeyond2GiB_IsAnnouncedInChunks) {
  TestFiles files;
  files.add("huge", "");
  const MultipartBody empty(files.files(), "B");
  const off_t largest = off_t{INT32_MAX} - static_cast<off_t>(empty.size());
  for (const auto& [size, announced] : {std::pair<off_t, int>{0, static_cast<int>(empty.size())},
                                        {largest, INT32_MAX},
                                        {largest + 1, -1},
                                        {off_t{5} << 30, -1}}) {
    ASSERT_EQ(0, truncate(files.path("huge").c_str(), size));
    std::vector<InputFile> opened;
    opened.emplace_back(files.path("huge"));
    EXPECT_EQ(announced, MultipartBody(opened, "B").announcedLength()) << size;
  }
}

TEST(MultipartBody, NamesThatCouldEndTheField_AreEscaped) {
  EXPECT_EQ("form-data; name=\"upload\"; filename=\"a\\\"; name=\\\"x\"", dispositionOf("a\"; name=\"x"));
  EXPECT_EQ("form-data; name=\"upload\"; filename=\"a\\\\\"", dispositionOf("a\\"));
  EXPECT_EQ("form-data; name=\"upload\"; filename=\"a%0D%0A%0D%0Ab%09%7F\"", dispositionOf("a\r\n\r\nb\t\x7F"));
  EXPECT_EQ("form-data; name=\"upload\"; filename=\"\xC3\x96 ;='\"", dispositionOf("\xC3\x96 ;='"));
}

TEST(RandomBoundary, IsLongPlainAndNew) {
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    const std::string boundary = randomBoundary();
    EXPECT_EQ(55U, boundary.size());
    EXPECT_EQ(0U, boundary.find("jxpush-"));
    EXPECT_EQ(std::string::npos, boundary.find_first_not_of("0123456789ABCDEF", 7)) << boundary;
    seen.insert(boundary);
  }
  EXPECT_EQ(100U, seen.size());
}
