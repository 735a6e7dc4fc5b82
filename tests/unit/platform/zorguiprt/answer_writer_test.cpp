// Answers as they go over a connection, byte for byte.
#include "platform/linux/zorguiprt/answer_writer.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <future>
#include <string>

#include "platform/linux/zorguiprt/shell_document.h"
#include "tests/unit/platform/zorguiprt/plain_client.h"

using jxplatform::Answer;
using jxplatform::AnswerPart;
using jxplatform::Connection;

namespace {

const std::string kOfEveryAnswer = std::string("Connection: close\r\nContent-Security-Policy: ") +
                                   jxplatform::kContentSecurityPolicy +
                                   "\r\nX-Content-Type-Options: nosniff\r\nReferrer-Policy: no-referrer\r\n"
                                   "Cross-Origin-Resource-Policy: same-origin\r\nCache-Control: no-store\r\n";

std::string written(const Answer& answer, AnswerPart part) {
  int ends[2];
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  auto client = std::async(std::launch::async, [fd = ends[0]] { return readAll(fd); });
  {
    Connection connection{base::Descriptor(ends[1])};
    writeAnswer(connection, answer, part);
  }
  return client.get();
}

}  // namespace

TEST(AnswerWriter, Answer_IsItsHeadAndItsBody) {
  const std::string head =
      "HTTP/1.1 200 OK\r\n" + kOfEveryAnswer + "Content-Length: 5\r\nContent-Type: text/plain\r\n\r\n";
  const Answer answer{200, "text/plain", "hello", ""};
  EXPECT_EQ(written(answer, AnswerPart::kWhole), head + "hello");
  EXPECT_EQ(written(answer, AnswerPart::kHead), head);
}

TEST(AnswerWriter, AnswerWithoutABody_HasNoLength) {
  EXPECT_EQ(written({}, AnswerPart::kWhole), "HTTP/1.1 204 No Content\r\n" + kOfEveryAnswer + "\r\n");
}

TEST(AnswerWriter, RefusalOfAMethod_SaysWhichAreAllowed) {
  EXPECT_EQ(written(jxplatform::methodRefusal("GET, HEAD"), AnswerPart::kWhole),
            "HTTP/1.1 405 Method Not Allowed\r\n" + kOfEveryAnswer +
                "Content-Length: 32\r\nContent-Type: text/plain; charset=utf-8\r\nAllow: GET, HEAD\r\n\r\n"
                "only GET, HEAD is answered here\n");
}

TEST(AnswerWriter, LongAnswer_GoesOutAsTheClientTakesIt) {
  const std::string body(std::size_t{8} << 20U, 'a');
  const std::string answer = written({200, "text/plain", body, ""}, AnswerPart::kWhole);
  EXPECT_EQ(answer.substr(answer.find("\r\n\r\n") + 4), body);
}
