#include "platform/linux/services/cloudproxyd/answer_head.h"

#include <gtest/gtest.h>

#include <string>

#include "base/ignore.h"

namespace cloudproxyd {
namespace {

// "STATUS REASON" of the final answer, or what it came to instead.
std::string told(const AnswerHead& head, AnswerHead::State state) {
  if (state == AnswerHead::State::kIncomplete) return "incomplete";
  return state == AnswerHead::State::kMalformed ? "malformed" : std::to_string(head.status()) + " " + head.reason();
}

// Taken whole, byte by byte, and in two pieces split anywhere, which must all end the same.
std::string taken(const std::string& bytes) {
  AnswerHead whole;
  std::string outcome = told(whole, whole.take(bytes));
  AnswerHead single;
  AnswerHead::State state = single.take("");
  for (const char byte : bytes) state = single.take(std::string(1, byte));
  EXPECT_EQ(told(single, state), outcome) << bytes;
  for (std::size_t at = 0; at <= bytes.size(); ++at) {
    AnswerHead split;
    base::ignore(split.take(bytes.substr(0, at)));
    EXPECT_EQ(told(split, split.take(bytes.substr(at))), outcome) << bytes << " at " << at;
  }
  return outcome;
}

TEST(AnswerHead, FinalAnswer_IsStatusAndReason) {
  EXPECT_EQ(taken("HTTP/1.1 204 No Content\r\n\r\n"), "204 No Content");
  EXPECT_EQ(taken("HTTP/1.0 503 Service Unavailable\r\nA: b\r\nC:d\r\n\r\n"), "503 Service Unavailable");
  EXPECT_EQ(taken("HTTP/1.1 200 OK\n\n"), "200 OK");
  EXPECT_EQ(taken("HTTP/1.1 200 \r\n\r\n"), "200 ");
  EXPECT_EQ(taken("HTTP/1.1 200\r\n\r\n"), "200 ");
  EXPECT_EQ(taken("HTTP/1.9 999 \xC3\xA4 <b> x\r\n\r\n"), "999 \xC3\xA4 <b> x");
}

TEST(AnswerHead, BytesBehindIt_DoNotCount) {
  EXPECT_EQ(taken("HTTP/1.1 200 OK\r\n\r\nHTTP/1.1 500 No\r\n\r\n"), "200 OK");
  EXPECT_EQ(taken("HTTP/1.1 200 OK\r\n\r\n" + std::string(AnswerHead::kMaxBytes, 'x')), "200 OK");
}

TEST(AnswerHead, EveryAnswerBefore200_IsPassedOver) {
  const std::string final = "HTTP/1.1 204 No Content\r\n\r\n";
  for (const char* const status : {"100", "101", "102", "103", "199"}) {
    const std::string interim = std::string("HTTP/1.1 ") + status + " Wait\r\nLink: x\r\n\r\n";
    EXPECT_EQ(taken(interim), "incomplete");
    EXPECT_EQ(taken(interim + interim + final), "204 No Content");
    EXPECT_EQ(taken(interim + "x\r\n\r\n"), "malformed");
  }
}

TEST(AnswerHead, CutAnywhere_IsIncomplete) {
  const std::string head = "HTTP/1.1 200 OK\r\nA: b\r\n\r\n";
  for (std::size_t size = 0; size < head.size(); ++size) {
    AnswerHead cut;
    EXPECT_EQ(cut.take(head.substr(0, size)), AnswerHead::State::kIncomplete) << size;
  }
}

TEST(AnswerHead, AnythingElse_IsMalformed) {
  for (const char* const line : {"",
                                 "SSH-2.0-x",
                                 "HTTP/1.1",
                                 "HTTP/1.1 ",
                                 "HTTP/1.1 20",
                                 "HTTP/1.1 2000",
                                 "HTTP/1.1 20x OK",
                                 "HTTP/1.1 x00 OK",
                                 "HTTP/1.1 099 OK",
                                 "HTTP/1.1  200 OK",
                                 "HTTP/1.1\t200 OK",
                                 "HTTP/1.1 200\tOK",
                                 "HTTP/1. 200 OK",
                                 "HTTP/1.x 200 OK",
                                 "HTTP/1.10 200 OK",
                                 "HTTP/2 200 OK",
                                 "HTTP/2.0 200 OK",
                                 "http/1.1 200 OK",
                                 " HTTP/1.1 200 OK",
                                 "HTTP/1.1 -20 OK",
                                 "\rHTTP/1.1 200 OK"}) {
    EXPECT_EQ(taken(std::string(line) + "\r\n"), "malformed") << line;
  }
}

TEST(AnswerHead, HeadsBeyondTheirLength_AreMalformed) {
  const std::string begin = "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nA: ";
  const std::string end = "\r\n\r\n";
  const std::string longest(AnswerHead::kMaxBytes - begin.size() - end.size(), 'x');
  AnswerHead fits;
  EXPECT_EQ(fits.take(begin + longest + end), AnswerHead::State::kComplete);
  AnswerHead tooLong;
  EXPECT_EQ(tooLong.take(begin + longest + "x" + end), AnswerHead::State::kMalformed);
  EXPECT_EQ(tooLong.take("HTTP/1.1 200 OK\r\n\r\n"), AnswerHead::State::kMalformed);
}

}  // namespace
}  // namespace cloudproxyd
