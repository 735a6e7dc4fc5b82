// A form as it comes in: what is stored, whatever its shape and however it is cut into chunks.
#include <sys/stat.h>

#include <fstream>

#include "tests/unit/upload/multipart.h"

namespace {

TEST_F(MultipartTest, OneFile_IsStored) { expectStored(filePart("content") + kEnd, {{"upload-0.zip", "content"}}); }

TEST_F(MultipartTest, EmptyFile_IsStored) { expectStored(filePart("") + kEnd, {{"upload-0.zip", ""}}); }

TEST_F(MultipartTest, AnyBytes_AreStored) {
  std::string all;
  for (int round = 0; round < 40; ++round) {
    for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
  }
  expectStored(filePart(all) + kEnd, {{"upload-0.zip", all}});
}

TEST_F(MultipartTest, Files_AreNumberedInTheirOrder) {
  expectStored(filePart("one") + "\r\n" + filePart("x", "other") + "\r\n" + filePart("two") + "\r\n" +
                   part("Content-Disposition: form-data; name=\"note\"\r\n", "text") + "\r\n" + filePart("three") +
                   kEnd,
               {{"upload-0.zip", "one"}, {"upload-1.zip", "two"}, {"upload-2.zip", "three"}});
}

TEST_F(MultipartTest, EmptyFileName_IsSkippedWithoutANumber) {
  expectStored(
      part("Content-Disposition: form-data; name=\"upload\"; filename=\"\"\r\n", "") + "\r\n" + filePart("one") + kEnd,
      {{"upload-0.zip", "one"}});
}

TEST_F(MultipartTest, FileNameOfTheClient_IsNotUsed) {
  expectStored(part("Content-Disposition: form-data; name=\"upload\"; filename=\"../../etc/passwd\"\r\n", "x") + kEnd,
               {{"upload-0.zip", "x"}});
}

TEST_F(MultipartTest, ExistingFile_IsReplaced) {
  std::ofstream(path("upload-0.zip")) << "an older and longer content";
  EXPECT_TRUE(receive(filePart("new") + kEnd));
  EXPECT_EQ(stored(), (Files{{"upload-0.zip", "new"}}));
}

TEST_F(MultipartTest, NotMultiple_StoresTheFirstAlone) {
  EXPECT_TRUE(receive(filePart("one") + "\r\n" + filePart("two") + kEnd, false));
  EXPECT_EQ(stored(), (Files{{"upload.zip", "one"}}));
}

TEST_F(MultipartTest, TargetIsSplitAtItsLastDot) {
  const std::string body = filePart("x") + kEnd;
  EXPECT_TRUE(receive(body, true, kType, "plain"));
  EXPECT_TRUE(receive(body, true, kType, "a.tar.gz"));
  EXPECT_TRUE(receive(body, true, kType, "end."));
  EXPECT_TRUE(receive(body, false, kType, "single"));
  // directories count too, deliberately: the last dot may be one of theirs
  EXPECT_TRUE(receive(body, true, kType, "d.d/file"));
  EXPECT_EQ(stored(), (Files{{"plain-0", "x"}, {"a.tar-0.gz", "x"}, {"end-0.", "x"}, {"single", "x"}, {"d-0.d", "?"}}));
}

TEST_F(MultipartTest, MissingDirectories_AreMade) {
  EXPECT_TRUE(receive(filePart("x") + kEnd, true, kType, "new/deep/upload.zip"));
  struct stat status {};
  EXPECT_EQ(stat(path("new/deep/upload-0.zip").c_str(), &status), 0);
}

TEST_F(MultipartTest, ContentTypes_ThatAreNoForm) {
  for (const char* type : {"", "text/plain", "multipart/form-data", "multipart/form-datax; boundary=b",
                           "Multipart/Form-Data; boundary=b", "multipart/mixed; boundary=b", "boundary=b",
                           "multipart/form-data; Boundary=b", "multipart/form-data; boundary=c",
                           "multipart/form-data; boundary=\"b c\"", "x; multipart/form-data; boundary=b"}) {
    EXPECT_FALSE(receive(filePart("x") + kEnd, true, type)) << type;
    EXPECT_EQ(stored(), Files()) << type;
  }
}

TEST_F(MultipartTest, ContentTypeMissing_IsNoForm) {
  EXPECT_FALSE(receiveFrom(ScriptedPeer(post("/", "", filePart("x") + kEnd), ScriptedPeer::End::TimedOut)));
}

TEST_F(MultipartTest, ContentTypes_ThatNameTheBoundary) {
  for (const char* type :
       {"multipart/form-data; boundary=\"b\"", "multipart/form-data;boundary=b",
        "multipart/form-data; boundary=b; charset=x", "multipart/form-data; charset=utf-8; boundary=b",
        "multipart/form-data; boundary=c; boundary=b", " multipart/form-data , boundary=b",
        "multipart/form-data; boundary=\"\\b"}) {
    clearDirectory();
    EXPECT_TRUE(receive(filePart("x") + kEnd, true, type)) << type;
    EXPECT_EQ(stored(), (Files{{"upload-0.zip", "x"}})) << type;
  }
}

TEST_F(MultipartTest, EmptyBoundary_IsADelimiterToo) {
  const std::string head = "--\r\nContent-Disposition: form-data; name=upload; filename=a\r\n\r\n";
  // The name alone is a parameter with an empty value.
  for (const char* type : {"multipart/form-data; boundary=", "multipart/form-data; boundary",
                           "multipart/form-data boundary = b", "multipart/form-data; boundary=b; boundary"}) {
    clearDirectory();
    EXPECT_TRUE(receive(head + "x\r\n----\r\n", true, type)) << type;
    EXPECT_EQ(stored(), (Files{{"upload-0.zip", "x"}})) << type;
  }
}

// A form with one file.
std::string formOf(const std::string& boundary, const std::string& content) {
  std::string body = "--";
  body.append(boundary).append("\r\nContent-Disposition: form-data; name=upload; filename=a\r\n\r\n");
  return body.append(content).append("\r\n--").append(boundary).append("--\r\n");
}

TEST_F(MultipartTest, LongBoundaries_AreFoundUpToTheBuffersSize) {
  const std::string content(9000, 'q');
  for (const std::size_t length : {70U, 1000U, 3900U, 4092U}) {
    clearDirectory();
    const std::string boundary(length, 'q');
    EXPECT_TRUE(receive(formOf(boundary, content), true, "multipart/form-data; boundary=" + boundary)) << length;
    EXPECT_EQ(stored(), (Files{{"upload-0.zip", content}})) << length;
  }
}

TEST_F(MultipartTest, DelimitersLargerThanTheBuffer_EndTheReception) {
  for (const std::size_t length : {4093U, 4096U, 5000U, 20000U}) {
    const std::string boundary(length, 'q');
    EXPECT_FALSE(receive(formOf(boundary, "x"), true, "multipart/form-data; boundary=" + boundary)) << length;
    EXPECT_EQ(stored(), Files()) << length;
  }
}

TEST_F(MultipartTest, WhatTheBufferHeldBefore_IsDropped) {
  const std::string body = filePart("x") + kEnd;
  for (const std::string type : {kType, "text/plain"}) {
    const ScriptedPeer peer(post("/", "Content-Type: " + type + "\r\n", body), ScriptedPeer::End::TimedOut);
    EXPECT_EQ(receiveFrom(peer, true, "upload.zip", "xx--b--\r\n"), type == kType);
  }
}

TEST_F(MultipartTest, Preamble_IsDropped) {
  expectStored("ignored\r\n" + filePart("x") + kEnd, {{"upload-0.zip", "x"}});
  expectStored(std::string(10000, '-') + "\r\n" + filePart("x") + kEnd, {{"upload-0.zip", "x"}});
  expectStored("ignored" + filePart("x") + kEnd, {});
}

TEST_F(MultipartTest, Epilogue_IsDrained) {
  expectStored(filePart("x") + kEnd + std::string(20000, 'e') + filePart("y") + kEnd, {{"upload-0.zip", "x"}});
  // Also one that looks like a part.
  expectStored(filePart("x") + kEnd + filePart("y").substr(5) + kEnd, {{"upload-0.zip", "x"}});
}

TEST_F(MultipartTest, BoundaryLine_MayCarryMore) {
  const std::string head = "Content-Disposition: form-data; name=upload; filename=a\r\n\r\n";
  expectStored("--b \t\r\n" + head + "x" + kEnd, {{"upload-0.zip", "x"}});
  expectStored("--b\n" + head + "x" + kEnd, {{"upload-0.zip", "x"}});
  expectStored("--bc\r\n" + head + "x\r\n--b-\r\n" + head + "y" + kEnd, {{"upload-0.zip", "x"}, {"upload-1.zip", "y"}});
  expectStored("--b" + std::string(4096, ' ') + "\r\n" + head + "x" + kEnd, {});
}

TEST_F(MultipartTest, BoundaryLineAtTheEnd_EndsTheReception) {
  expectStored("--b", {});
  expectStored("--b-", {});
  expectStored("--b\r", {});
  expectStored("--b\r\n", {});
}

TEST_F(MultipartTest, BoundaryLineThatFillsTheBuffer_EndsTheReception) {
  const std::string rest = "\r\nContent-Disposition: form-data; name=upload; filename=a\r\n\r\nx" + kEnd;
  // Behind the boundary: the rest of its line, whose line feed is the last byte that the buffer holds, or the last but
  // one.
  expectStored("--b" + std::string(4096 - 2, ' ') + rest, {});
  expectStored("--b" + std::string(4096 - 3, ' ') + rest, {{"upload-0.zip", "x"}});
}

TEST_F(MultipartTest, FoldedHeader_IsJoined) {
  expectStored(part("Content-Disposition: form-data;\r\n\tname=\"upload\";\r\n filename=\"a\"\r\nX: y\r\n", "x") + kEnd,
               {{"upload-0.zip", "x"}});
}

TEST_F(MultipartTest, LineEndOfTheLastHeader_BelongsToItsOpenQuote) {
  expectStored(part("Content-Disposition: form-data; filename=a; name=\"upload\r\n", "x") + kEnd, {});
}

TEST_F(MultipartTest, BareLineFeedsBetweenHeaders_AreAccepted) {
  expectStored(part("X: y\nContent-Disposition: form-data; name=upload; filename=a\r\n", "x") + kEnd,
               {{"upload-0.zip", "x"}});
}

TEST_F(MultipartTest, BareLineFeedsAfterTheHeaders_AreNoEnd) {
  expectStored("--b\r\nContent-Disposition: form-data; name=upload; filename=a\n\nx" + kEnd, {});
}

TEST_F(MultipartTest, PartWithoutHeaders_EndsAtTheNextEmptyLine) {
  // What looks like an empty header block is the beginning of one, and what is found there are headers.
  expectStored("--b\r\n\r\nContent-Disposition: form-data; name=upload; filename=a\r\n\r\nx" + kEnd,
               {{"upload-0.zip", "x"}});
}

TEST_F(MultipartTest, HeadersUpToTheBuffersSize_AreRead) {
  const std::string disposition = "Content-Disposition: form-data; name=upload; filename=a\r\n";
  // What the buffer holds when the headers are looked for: them and the empty line.
  const std::size_t room = 4096 - disposition.size() - std::string("X: \r\n\r\n").size();
  const auto withFiller = [&](std::size_t size) {
    return part("X: " + std::string(size, 'f') + "\r\n" + disposition, std::string(5000, 'c')) + kEnd;
  };
  expectStored(withFiller(room - 1), {{"upload-0.zip", std::string(5000, 'c')}});
  expectStored(withFiller(room), {{"upload-0.zip", std::string(5000, 'c')}});
  expectStored(withFiller(room + 1), {});
  expectStored(withFiller(20000), {});
}

TEST_F(MultipartTest, OversizeHeadersOfALaterPart_KeepWhatWasStored) {
  expectStored(
      filePart("one") + "\r\n" + part("X: " + std::string(5000, 'f') + "\r\n", "x") + "\r\n" + filePart("two") + kEnd,
      {{"upload-0.zip", "one"}});
}

TEST_F(MultipartTest, DelimiterAtEveryPlaceOfTheBuffer_IsFound) {
  for (std::size_t size = 4096 - 200; size <= 4096 + 20; ++size) {
    const std::string content(size, 'c');
    expectStored(filePart(content) + "\r\n" + filePart("two") + kEnd,
                 {{"upload-0.zip", content}, {"upload-1.zip", "two"}});
  }
}

TEST_F(MultipartTest, ContentLikeTheDelimiter_IsStored) {
  std::string almost;
  for (int i = 0; i < 3000; ++i) almost += "\r\n--";
  for (const std::string& content : {std::string(20000, '\r'), std::string(20000, '\n'), almost,
                                     "\r\n-" + almost + "-c", std::string("\r\n-\r\n--a\r\n"), "--b" + almost}) {
    expectStored(filePart(content) + kEnd, {{"upload-0.zip", content}});
  }
}

TEST_F(MultipartTest, LineBreakBeforeTheDelimiter_BelongsToTheFile) {
  expectStored(filePart("x\r\n") + kEnd, {{"upload-0.zip", "x\r\n"}});
  expectStored(filePart("x\r") + kEnd, {{"upload-0.zip", "x\r"}});
}

TEST_F(MultipartTest, ChunkedBodies_GiveTheSame) {
  const std::string body = filePart("one") + "\r\n" + filePart(std::string(5000, '2')) + kEnd;
  const Files files{{"upload-0.zip", "one"}, {"upload-1.zip", std::string(5000, '2')}};
  const std::string head =
      std::string("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\nContent-Type: ") + kType + "\r\n\r\n";
  for (const std::size_t size : {1U, 2U, 3U, 5U, 64U, 4096U, 100000U}) {
    clearDirectory();
    EXPECT_TRUE(receiveFrom(ScriptedPeer(head + chunked(body, size), ScriptedPeer::End::TimedOut))) << size;
    EXPECT_EQ(stored(), files) << size;
  }
}

TEST_F(MultipartTest, BodySplitAtEveryPoint_GivesTheSame) {
  const std::string body = filePart("one") + "\r\n" + filePart("two") + kEnd;
  const Files files{{"upload-0.zip", "one"}, {"upload-1.zip", "two"}};
  const std::string head =
      std::string("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\nContent-Type: ") + kType + "\r\n\r\n";
  for (std::size_t at = 1; at < body.size(); ++at) {
    clearDirectory();
    ScriptedPeer peer(head, ScriptedPeer::End::TimedOut);
    const std::string first = chunked(body.substr(0, at), at);
    peer.send(first.substr(0, first.size() - 5)).send(chunked(body.substr(at), body.size()));
    EXPECT_TRUE(receiveFrom(peer)) << at;
    EXPECT_EQ(stored(), files) << at;
  }
}

TEST_F(MultipartTest, ManySmallFiles_AreAllStored) {
  std::string body;
  Files files;
  for (int i = 0; i < 300; ++i) {
    body += filePart(std::to_string(i)) + "\r\n";
    files["upload-" + std::to_string(i) + ".zip"] = std::to_string(i);
  }
  expectStored(body.substr(0, body.size() - 2) + kEnd, files);
}

}  // namespace
