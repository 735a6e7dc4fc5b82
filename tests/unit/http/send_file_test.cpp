#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "tests/unit/http/engine.h"

namespace {

using Lines = std::vector<std::string>;

class SendFile : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/jx_send_file_XXXXXX";
    const int fd = mkstemp(name);
    ASSERT_GE(fd, 0);
    close(fd);
    name_ = name;
  }
  void TearDown() override { std::remove(name_.c_str()); }

  void fill(const std::string& content) const {
    std::FILE* file = std::fopen(name_.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(std::fwrite(content.data(), 1, content.size(), file), content.size());
    std::fclose(file);
  }

  // The reply of an engine that has read a request.
  static bool send(const ScriptedPeer& peer, const std::string& name, bool* connected = nullptr) {
    Engine engine(peer);
    engine.headers["http-version"] = "HTTP/1.1";
    engine.clientMode = 0;
    const bool result = engine.sendFile(206, name, "a/b", false, {{"X", "y"}});
    if (connected != nullptr) *connected = engine.connection != nullptr;
    return result;
  }

  std::string name_;
};

const Lines kHead = {"HTTP/1.1 206 Partial Content\r\n",
                     "Transfer-Encoding: chunked\r\n",
                     "Content-Type: a/b\r\n",
                     "Connection: close\r\n",
                     "X: y\r\n",
                     "\r\n"};

Lines operator+(Lines head, const Lines& tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

TEST_F(SendFile, File_IsSentChunkedAndTheResultIsFalse) {
  fill("hello");
  const ScriptedPeer peer;
  bool connected = false;
  EXPECT_FALSE(send(peer, name_, &connected));
  EXPECT_EQ(peer.writes(), kHead + (Lines{"5\r\n", "hello", "\r\n", "0\r\n\r\n"}));
  EXPECT_TRUE(connected);
}

TEST_F(SendFile, EmptyFile_IsTheLastChunkAlone) {
  const ScriptedPeer peer;
  EXPECT_FALSE(send(peer, name_));
  EXPECT_EQ(peer.writes(), kHead + (Lines{"0\r\n\r\n"}));
}

TEST_F(SendFile, LongFile_GoesInBlocksOf4096) {
  fill(std::string(4096, 'a') + std::string(4096, 'b') + "c");
  const ScriptedPeer peer;
  EXPECT_FALSE(send(peer, name_));
  EXPECT_EQ(peer.writes(), kHead + (Lines{"1000\r\n", std::string(4096, 'a'), "\r\n", "1000\r\n",
                                          std::string(4096, 'b'), "\r\n", "1\r\n", "c", "\r\n", "0\r\n\r\n"}));
}

TEST_F(SendFile, FileOfWholeBlocks_SendsNoEmptyChunk) {
  fill(std::string(4096, 'a'));
  const ScriptedPeer peer;
  EXPECT_FALSE(send(peer, name_));
  EXPECT_EQ(peer.writes(), kHead + (Lines{"1000\r\n", std::string(4096, 'a'), "\r\n", "0\r\n\r\n"}));
}

TEST_F(SendFile, MissingFile_IsA404WhateverTheStatus) {
  const ScriptedPeer peer;
  EXPECT_TRUE(send(peer, name_ + ".missing"));
  EXPECT_EQ(peer.writes(), (Lines{"HTTP/1.1 404 Not Found\r\n", "Content-Length: 0\r\n", "Content-Type: text/plain\r\n",
                                  "Connection: Keep-Alive\r\n", "\r\n"}));
}

TEST_F(SendFile, MissingFileAndFailingWrite_IsFalse) {
  for (int nth = 1; nth <= 5; ++nth) {
    ScriptedPeer peer;
    EXPECT_FALSE(send(peer.failWrite(nth), name_ + ".missing")) << nth;
  }
}

TEST_F(SendFile, FailingHeaderWrite_IsFalseAndKeepsTheStream) {
  fill("hello");
  for (int nth = 1; nth <= 6; ++nth) {
    ScriptedPeer peer;
    bool connected = false;
    EXPECT_FALSE(send(peer.failWrite(nth), name_, &connected)) << nth;
    EXPECT_EQ(peer.writeCalls(), nth);
    EXPECT_TRUE(connected) << nth;
  }
}

TEST_F(SendFile, FailingBodyWriteOrLastChunk_IsTrue) {
  fill("hello");
  for (int nth = 7; nth <= 10; ++nth) {
    ScriptedPeer peer;
    bool connected = true;
    EXPECT_TRUE(send(peer.failWrite(nth), name_, &connected)) << nth;
    EXPECT_EQ(peer.writeCalls(), nth);
    EXPECT_FALSE(connected) << nth;
  }
}

TEST_F(SendFile, FailingBlock_IsTheLast) {
  struct Counting : Engine {
    using Engine::Engine;
    using Engine::writeBody;
    bool writeBody(const void* data, int length) override { return ++blocks, Engine::writeBody(data, length); }
    int blocks = 0;
  };
  fill(std::string(3 * 4096, 'a'));
  ScriptedPeer peer;
  Counting engine(peer.failWrite(8));
  EXPECT_TRUE(engine.sendFile(206, name_, "a/b", false, {{"X", "y"}}));
  EXPECT_EQ(engine.blocks, 1);
}

int lowestFreeDescriptor() {
  const int fd = dup(0);
  close(fd);
  return fd;
}

TEST_F(SendFile, LastChunk_FollowsTheEndOfTheFilesUse) {
  struct Looking : Engine {
    using Engine::Engine;
    bool finishBody() override { return lowest = lowestFreeDescriptor(), Engine::finishBody(); }
    int lowest = -1;
  };
  const int before = lowestFreeDescriptor();
  Looking engine{ScriptedPeer()};
  EXPECT_FALSE(engine.sendFile(200, name_, "", true, {}));
  EXPECT_EQ(engine.lowest, before);
}

TEST_F(SendFile, Directory_IsTheLastChunkAlone) {
  const ScriptedPeer peer;
  EXPECT_FALSE(send(peer, "/tmp"));
  EXPECT_EQ(peer.writes(), kHead + (Lines{"0\r\n\r\n"}));
}

TEST_F(SendFile, NoConnection_IsFalse) {
  Engine engine;
  EXPECT_FALSE(engine.sendFile(200, name_, "", true, {}));
  EXPECT_FALSE(engine.sendFile(200, name_ + ".missing", "", true, {}));
}

TEST_F(SendFile, ManyFiles_LeaveNoDescriptorOpen) {
  const int before = lowestFreeDescriptor();
  for (int nth = 1; nth <= 8; ++nth) {
    ScriptedPeer peer;
    send(peer.failWrite(nth), name_);
  }
  EXPECT_EQ(lowestFreeDescriptor(), before);
}

}  // namespace
