// Damaged requests through the whole connection loop: each ends, and none harms the process.
#include <gtest/gtest.h>

#include <random>

#include "tests/unit/http/test_server.h"

namespace {

const std::string kConversation =
    "GET /a%20b/../c?d=%41 HTTP/1.1\r\nHost: x\r\nConnection: keep-alive\r\n\r\n"
    "POST /p HTTP/1.1\r\nConnection: keep-alive\r\nContent-Length: 11\r\nX-Fold: a\r\n b\r\n\r\nhello world"
    "POST /q HTTP/1.1\r\nConnection: keep-alive\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\nA;x\r\n, my "
    "world\r\n"
    "0\r\nT: v\r\n\r\n"
    "HEAD / HTTP/1.0\r\n\r\n";

// Serves `input`; returns the replies.
std::string serve(const std::string& input) {
  const ScriptedPeer peer(input);
  {
    TestServer server(peer);
    EXPECT_EQ(server.run(), 0);
  }
  EXPECT_TRUE(peer.deleted());
  return peer.written();
}

int count(const std::string& text, const std::string& part) {
  int found = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
  return found;
}

TEST(Mutation, WholeConversation_IsServed) {
  const std::string replies = serve(kConversation);
  EXPECT_EQ(count(replies, "HTTP/1.1 200 OK\r\n"), 3);
  EXPECT_EQ(count(replies, "HTTP/1.0 405 Method Not Allowed\r\n"), 1);
}

// A reply is written for each request that was whole, and at most one refusal behind them.
TEST(Mutation, ConversationCutAnywhere_IsServedAsFarAsItGoes) {
  int served = 0;
  for (std::size_t cut = 0; cut <= kConversation.size(); ++cut) {
    const std::string replies = serve(kConversation.substr(0, cut));
    const int whole = count(replies, " 200 OK\r\n");
    EXPECT_GE(whole, served) << cut;
    EXPECT_LE(count(replies, " 400 Bad Request\r\n"), 1) << cut;
    served = whole;
  }
  EXPECT_EQ(served, 3);
}

TEST(Mutation, RandomDamage_EndsEachTime) {
  const std::string bytes = std::string("\r\n:%/?\\ -0x9f", 13) + std::string("\0\xff", 2);
  std::mt19937 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same bytes in each run
  for (int round = 0; round < 5000; ++round) {
    std::string input = kConversation;
    for (std::size_t damage = 1 + random() % 8; damage > 0; --damage) {
      const std::size_t at = random() % input.size();
      switch (random() % 4) {
        case 0:
          input[at] = bytes[random() % bytes.size()];
          break;
        case 1:
          input.erase(at, 1 + random() % 20);
          break;
        case 2:
          input.insert(at, input.substr(random() % input.size(), random() % 40));
          break;
        default:
          input.insert(at, std::to_string(random()) + std::to_string(random()));
      }
      if (input.empty()) break;
    }
    serve(input);
  }
}

}  // namespace
