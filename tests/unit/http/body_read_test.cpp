// Bodies that are read through a buffer or whole, framed by their length or in chunks.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "tests/unit/http/engine.h"

namespace {

using End = ScriptedPeer::End;
using Bytes = std::vector<unsigned char>;

// The reads of a body through a buffer of `size`, up to the first that gives 0 or -1; the results and the bytes.
struct Reads {
  std::vector<int> results;
  std::string bytes;
};

Reads readThrough(Engine& engine, int size) {
  Reads reads;
  std::vector<char> buffer(static_cast<std::size_t>(size));
  for (;;) {
    const int count = engine.readBody(buffer.data(), size);
    reads.results.push_back(count);
    if (count <= 0) return reads;
    reads.bytes.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

class Chunked : public Engine {
 public:
  explicit Chunked(const ScriptedPeer& peer) : Engine(peer) { bodyRemaining = -1; }
};

using Results = std::vector<int>;

TEST(FixedBody, Reads_CountDownToZero) {
  const ScriptedPeer peer("helloNEXT");
  Engine engine(peer);
  engine.bodyRemaining = 5;
  const Reads reads = readThrough(engine, 3);
  EXPECT_EQ(reads.results, (Results{3, 2, 0}));
  EXPECT_EQ(reads.bytes, "hello");
  EXPECT_EQ(engine.bodyRemaining, 0);
  EXPECT_EQ(peer.unread(), 4U);
}

TEST(FixedBody, EachRead_IsOneStreamReadWithTheTimeout) {
  const ScriptedPeer peer("hello");
  Engine engine(peer);
  engine.bodyRemaining = 5;
  engine.timeout = 77;
  readThrough(engine, 4);
  ASSERT_EQ(peer.reads().size(), 2U);
  EXPECT_EQ(peer.reads()[0].size, 4U);
  EXPECT_EQ(peer.reads()[1].size, 1U);
  EXPECT_FALSE(peer.reads()[0].exact);
  EXPECT_EQ(peer.reads()[0].timeoutMs, 77);
}

TEST(FixedBody, ShortBody_DropsTheConnection) {
  for (const End end : {End::Closed, End::TimedOut, End::Failed}) {
    const ScriptedPeer peer("hell", end);
    Engine engine(peer);
    engine.bodyRemaining = 5;
    char buffer[8];
    EXPECT_EQ(engine.readBody(buffer, 8), -1);
    EXPECT_TRUE(peer.deleted());
    EXPECT_EQ(engine.connection, nullptr);
    EXPECT_EQ(engine.bodyRemaining, 5);
    EXPECT_EQ(engine.readBody(buffer, 8), 0);
  }
}

TEST(FixedBody, NoBodyOrNoConnection_GivesZero) {
  char buffer[8];
  std::string text = "left";
  Bytes bytes(3);
  const ScriptedPeer peer("hello");
  Engine finished(peer);
  EXPECT_EQ(finished.readBody(buffer, 8), 0);
  EXPECT_EQ(finished.readBody(text), 0);
  EXPECT_EQ(text, "");
  EXPECT_EQ(finished.readBody(bytes), 0);
  EXPECT_TRUE(bytes.empty());
  EXPECT_TRUE(peer.reads().empty());
  Engine unconnected;
  unconnected.bodyRemaining = 5;
  text = "left";
  EXPECT_EQ(unconnected.readBody(buffer, 8), 0);
  EXPECT_EQ(unconnected.readBody(text), 0);
  EXPECT_EQ(text, "");
}

TEST(FixedBody, ZeroOrNegativeLength_ReadsNothing) {
  const ScriptedPeer peer("hello");
  Engine engine(peer);
  engine.bodyRemaining = 5;
  char buffer[1];
  EXPECT_EQ(engine.readBody(buffer, 0), 0);
  EXPECT_EQ(engine.readBody(buffer, -1), 0);
  EXPECT_EQ(engine.bodyRemaining, 5);
  engine.bodyRemaining = -1;
  EXPECT_EQ(engine.readBody(buffer, -1), 0);
  EXPECT_EQ(peer.unread(), 5U);
}

TEST(FixedBody, WholeBody_IsReadAtOnce) {
  const ScriptedPeer peer("hello");
  Engine engine(peer);
  engine.bodyRemaining = 5;
  std::string text = "left over";
  EXPECT_EQ(engine.readBody(text), 5);
  EXPECT_EQ(text, "hello");
  ASSERT_EQ(peer.reads().size(), 1U);
  EXPECT_EQ(peer.reads()[0].size, 5U);
}

TEST(FixedBody, WholeBodyIntoBytes_IsReadAtOnce) {
  Engine engine(ScriptedPeer("hello"));
  engine.bodyRemaining = 5;
  Bytes bytes(9);
  EXPECT_EQ(engine.readBody(bytes), 5);
  EXPECT_EQ(bytes, (Bytes{'h', 'e', 'l', 'l', 'o'}));
}

TEST(FixedBody, WholeBodyCutAnywhere_FailsWithAnEmptyOutput) {
  for (std::size_t cut = 0; cut < 5; ++cut) {
    const ScriptedPeer peer(std::string("hello").substr(0, cut));
    Engine engine(peer);
    engine.bodyRemaining = 5;
    std::string text;
    EXPECT_EQ(engine.readBody(text), -1);
    EXPECT_EQ(text, "");
    EXPECT_TRUE(peer.deleted());
  }
}

constexpr int kMebibyte = 1 << 20;

TEST(FixedBody, WholeBodyOf16Mebibytes_IsReadAtOnceToo) {
  const std::string sent(16 * kMebibyte, 'x');
  const ScriptedPeer peer(sent + "NEXT");
  Engine engine(peer);
  engine.bodyRemaining = 16 * kMebibyte;
  std::string text;
  EXPECT_EQ(engine.readBody(text), 16 * kMebibyte);
  EXPECT_TRUE(text == sent);
  EXPECT_EQ(peer.reads().size(), 1U);
  EXPECT_EQ(peer.unread(), 4U);
}

TEST(FixedBody, ReplacedStepThatReadsLess_LeavesTheOutputAsAnnounced) {
  struct Sparing : Engine {
    using Engine::Engine;
    using Engine::readBody;
    int readBody(void* data, int) override { return std::memcpy(data, "ab", 2), 2; }
  };
  Sparing engine{ScriptedPeer()};
  engine.bodyRemaining = 5;
  std::string text = "left over";
  EXPECT_EQ(engine.readBody(text), 2);
  EXPECT_EQ(text, std::string("ab\0\0\0", 5));
}

// A derived class whose reading fails for a reason of its own may go on with the connection.
TEST(WholeBody, FailureOfAReplacedStep_EmptiesTheOutputAndKeepsTheConnection) {
  struct Refusing : Engine {
    using Engine::Engine;
    using Engine::readBody;
    int readBody(void*, int) override { return -1; }
  };
  for (const int framing : {5, 16 * kMebibyte + 1, -1}) {
    const ScriptedPeer peer("hello");
    Refusing engine(peer);
    engine.bodyRemaining = framing;
    std::string text = "left";
    EXPECT_EQ(engine.readBody(text), -1) << framing;
    EXPECT_EQ(text, "") << framing;
    EXPECT_FALSE(peer.deleted()) << framing;
  }
}

TEST(FixedBody, LargerWholeBody_IsReadInPieces) {
  std::string sent(16 * kMebibyte, 'x');
  sent += "yz";
  for (std::size_t missing = 0; missing < 3; ++missing) {
    const ScriptedPeer peer(sent.substr(0, sent.size() - missing));
    Engine engine(peer);
    engine.bodyRemaining = 16 * kMebibyte + 2;
    Bytes bytes(3);
    EXPECT_EQ(engine.readBody(bytes), missing == 0 ? 16 * kMebibyte + 2 : -1) << missing;
    EXPECT_TRUE(bytes == (missing == 0 ? Bytes(sent.begin(), sent.end()) : Bytes())) << missing;
    EXPECT_EQ(bytes.capacity() == 0, missing > 0) << missing;
    EXPECT_EQ(peer.reads().size(), 2U) << missing;
    EXPECT_EQ(peer.deleted(), missing > 0) << missing;
  }
}

#if !defined(__SANITIZE_THREAD__)  // which keeps several bytes for each

// Sends `size` bytes that it does not hold, and ends.
class Sender : public zoripc::IPC {
 public:
  explicit Sender(std::size_t size) : left_(size) {}
  int getFD() const override { return -1; }
  bool readExact(void*, std::size_t, int, int) override { return false; }
  std::size_t read(void* data, std::size_t size, int) override {
    const std::size_t count = std::min(size, left_);
    std::memset(data, 'x', count);
    left_ -= count;
    return count;
  }
  bool write(const void*, std::size_t) override { return false; }
  bool closed() const override { return left_ == 0; }
  bool failed() const override { return false; }

 private:
  std::size_t left_;
};

int peakMebibytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<int>(usage.ru_maxrss / 1024);
}

// By how many MiB a process's peak grows while it reads a whole body of `announced` bytes, of which `sent` come. The
// process is a new one, whose peak begins anew.
int growthBy(int announced, std::size_t sent) {
  const pid_t child = fork();
  if (child == 0) {
    const int before = peakMebibytes();
    Engine engine;
    engine.setConnection(new Sender(sent));
    engine.bodyRemaining = announced;
    std::string text;
    static_cast<void>(engine.readBody(text));
    _exit(std::min(peakMebibytes() - before, 255));
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  return WEXITSTATUS(status);
}

TEST(FixedBody, LargeWholeBody_TakesItsSizeOnce) {
  const int growth = growthBy(64 * kMebibyte, 64U * kMebibyte);
  EXPECT_GE(growth, 64);
  EXPECT_LT(growth, 90);
}

#if !defined(__SANITIZE_ADDRESS__)  // which keeps notes on the room alone, an eighth of it
TEST(FixedBody, TwoGigabytesAnnounced_TakeLittleBeforeTheyArrive) { EXPECT_LT(growthBy(2147483647, 5), 30); }
#endif

#endif

TEST(ChunkedBody, SmallBuffer_CrossesTheChunks) {
  Chunked engine(ScriptedPeer("5\r\nhello\r\n0\r\n\r\n"));
  const Reads reads = readThrough(engine, 3);
  EXPECT_EQ(reads.results, (Results{3, 2, 0}));
  EXPECT_EQ(reads.bytes, "hello");
  EXPECT_EQ(engine.bodyRemaining, 0);
}

TEST(ChunkedBody, LargeBuffer_TakesAllChunksAtOnce) {
  const ScriptedPeer peer("5\r\nhello\r\n6;ext=1\r\n world\r\n0\r\nTrailer: x\r\n\r\nNEXT");
  Chunked engine(peer);
  const Reads reads = readThrough(engine, 100);
  EXPECT_EQ(reads.results, (Results{11, 0}));
  EXPECT_EQ(reads.bytes, "hello world");
  EXPECT_EQ(peer.unread(), 4U);
}

TEST(ChunkedBody, BufferThatEndsWithTheData_LeavesTheLastChunkForTheNextRead) {
  const ScriptedPeer peer("5\r\nhello\r\n0\r\n\r\n");
  Chunked engine(peer);
  char buffer[5];
  EXPECT_EQ(engine.readBody(buffer, 5), 5);
  EXPECT_EQ(peer.unread(), std::string("0\r\n\r\n").size());
  EXPECT_EQ(engine.readBody(buffer, 5), 0);
  EXPECT_EQ(peer.unread(), 0U);
}

TEST(ChunkedBody, DataOfAChunk_IsOneStreamReadWithTheTimeout) {
  const ScriptedPeer peer("5\r\nhello\r\n0\r\n\r\n");
  Chunked engine(peer);
  engine.timeout = 77;
  readThrough(engine, 3);
  std::vector<std::size_t> sizes;
  for (const auto& read : peer.reads()) {
    EXPECT_EQ(read.timeoutMs, 77);
    if (!read.exact) sizes.push_back(read.size);
  }
  EXPECT_EQ(sizes, (std::vector<std::size_t>{3, 2}));
}

TEST(ChunkedBody, LineEndAfterTheData_IsNotExamined) {
  Chunked engine(ScriptedPeer("2\r\nabjunk\n1\nc\n0\n\n"));
  const Reads reads = readThrough(engine, 100);
  EXPECT_EQ(reads.bytes, "abc");
}

// The data is in hand: that its line end does not follow fails the next read, not this one.
TEST(ChunkedBody, StreamThatEndsBehindTheData_FailsTheNextRead) {
  for (const End end : {End::Closed, End::TimedOut, End::Failed}) {
    Chunked engine(ScriptedPeer("5\r\nhello", end));
    const Reads reads = readThrough(engine, 5);
    EXPECT_EQ(reads.results, (Results{5, -1}));
    EXPECT_EQ(reads.bytes, "hello");
  }
}

// In two chunks, the first of which ends at each place, read by blocks of each size.
TEST(ChunkedBody, ChunkEdgeAnywhere_ReadsTheSame) {
  const std::string text = "hello, my world";
  for (std::size_t edge = 1; edge < text.size(); ++edge) {
    std::ostringstream wire;
    wire << std::hex << edge << "\r\n"
         << text.substr(0, edge) << "\r\n"
         << text.size() - edge << "\r\n"
         << text.substr(edge) << "\r\n0\r\nT: x\r\n\r\n";
    for (int size = 1; size <= 16; ++size) {
      const ScriptedPeer peer(wire.str());
      Chunked engine(peer);
      const Reads reads = readThrough(engine, size);
      EXPECT_EQ(reads.bytes, text) << edge << " " << size;
      EXPECT_EQ(reads.results.back(), 0) << edge << " " << size;
      EXPECT_EQ(peer.unread(), 0U) << edge << " " << size;
    }
  }
}

TEST(ChunkedBody, SilenceAnywhere_FailsAndDropsTheConnectionWhateverFollows) {
  const std::string wire = "5\r\nhello\r\n3\r\nabc\r\n0\r\nT: x\r\n\r\n";
  for (std::size_t cut = 0; cut < wire.size(); ++cut) {
    ScriptedPeer peer(wire.substr(0, cut));
    Chunked engine(peer.pause().send(wire.substr(cut)));
    char buffer[100];
    EXPECT_EQ(engine.readBody(buffer, 100), -1) << cut;
    EXPECT_TRUE(peer.deleted()) << cut;
  }
}

TEST(ChunkedBody, CutAnywhere_FailsAndDropsTheConnection) {
  const std::string wire = "5\r\nhello\r\n3\r\nabc\r\n0\r\nT: x\r\n\r\n";
  for (std::size_t cut = 0; cut < wire.size(); ++cut) {
    for (const End end : {End::Closed, End::TimedOut}) {
      const ScriptedPeer peer(wire.substr(0, cut), end);
      Chunked engine(peer);
      char buffer[100];
      EXPECT_EQ(engine.readBody(buffer, 100), -1) << cut;
      EXPECT_TRUE(peer.deleted()) << cut;
      EXPECT_EQ(engine.connection, nullptr) << cut;
    }
  }
}

TEST(ChunkedBody, FailureInTheTrailer_FinishesTheBody) {
  Chunked inTrailer(ScriptedPeer("0\r\nT: x\r\n"));
  char buffer[8];
  EXPECT_EQ(inTrailer.readBody(buffer, 8), -1);
  EXPECT_EQ(inTrailer.bodyRemaining, 0);
  Chunked inData(ScriptedPeer("5\r\nhe"));
  EXPECT_EQ(inData.readBody(buffer, 8), -1);
  EXPECT_EQ(inData.bodyRemaining, -1);
  EXPECT_EQ(inData.chunkRemaining, 5);
}

TEST(ChunkedBody, EveryFailingRead_FailsAndDropsTheConnection) {
  const std::string wire = "5\r\nhello\r\n0\r\n\r\n";
  const ScriptedPeer counter(wire);
  Chunked counted(counter);
  char buffer[100];
  ASSERT_EQ(counted.readBody(buffer, 100), 5);
  for (int nth = 1; nth <= static_cast<int>(counter.reads().size()); ++nth) {
    ScriptedPeer peer(wire);
    Chunked engine(peer.failRead(nth));
    EXPECT_EQ(engine.readBody(buffer, 100), -1) << nth;
    EXPECT_TRUE(peer.deleted()) << nth;
  }
}

TEST(ChunkedBody, SizeLineWithoutASize_Fails) {
  for (const char* line :
       {"", "g", "x0", ";5", "-5", "-1", "80000000", "ffffffff", "100000000", "fffffffffffffffffff"}) {
    const ScriptedPeer peer(std::string(line) + "\r\nhello\r\n0\r\n\r\n");
    Chunked engine(peer);
    char buffer[100];
    EXPECT_EQ(engine.readBody(buffer, 100), -1) << line;
    EXPECT_TRUE(peer.deleted()) << line;
    EXPECT_EQ(engine.bodyRemaining, -1) << line;
  }
}

TEST(ChunkedBody, OddSizeLines_AreReadAsHexadecimal) {
  for (const char* line : {"5", "05", "0x5", "0X5", " 5", "+5", "5 ", "5;a=b", "5hello", "00000000000000000005"}) {
    Chunked engine(ScriptedPeer(std::string(line) + "\r\nhello\r\n0\r\n\r\n"));
    EXPECT_EQ(readThrough(engine, 100).bytes, "hello") << line;
  }
}

// A prefix alone is zero too, as the terminal's C library reads it.
TEST(ChunkedBody, AnySpellingOfZero_IsTheLastChunk) {
  for (const char* line : {"0", "0000", "-0", "0x0", "0x", "0X", "0xg", "-0x", "0;last", "0 5"}) {
    const ScriptedPeer peer(std::string(line) + "\r\n\r\nNEXT");
    Chunked engine(peer);
    EXPECT_EQ(readThrough(engine, 100).results, (Results{0})) << line;
    EXPECT_EQ(engine.bodyRemaining, 0) << line;
    EXPECT_EQ(peer.unread(), 4U) << line;
  }
}

TEST(ChunkedBody, LargestSize_IsReadAsFarAsItArrives) {
  const ScriptedPeer peer("7fffffff\r\nhello");
  Chunked engine(peer);
  char buffer[5];
  EXPECT_EQ(engine.readBody(buffer, 5), 5);
  EXPECT_EQ(engine.chunkRemaining, 0x7fffffff - 5);
  EXPECT_EQ(engine.readBody(buffer, 5), -1);
}

TEST(ChunkedBody, NegativeContentLength_ReadsChunks) {
  Engine engine(ScriptedPeer("POST / HTTP/1.1\r\nContent-Length: -3\r\n\r\n2\r\nab\r\n0\r\n\r\n"));
  readHead(engine);
  std::string text;
  EXPECT_EQ(engine.readBody(text), 2);
  EXPECT_EQ(text, "ab");
  EXPECT_EQ(engine.bodyRemaining, 0);
}

TEST(ChunkedBody, CloseInAResponse_DropsTheConnectionAtTheEnd) {
  const ScriptedPeer peer("0\r\n\r\n");
  Chunked engine(peer);
  engine.headers["connection"] = "Keep-Alive, Close";
  char buffer[8];
  EXPECT_EQ(engine.readBody(buffer, 8), 0);
  EXPECT_TRUE(peer.deleted());
  EXPECT_EQ(engine.bodyRemaining, 0);
}

TEST(ChunkedBody, CloseOutsideClientMode_KeepsTheConnectionForTheReply) {
  for (const int mode : {0, 2, -1}) {
    const ScriptedPeer peer("2\r\nab\r\n0\r\n\r\n");
    Chunked engine(peer);
    engine.clientMode = mode;
    engine.headers["connection"] = "close";
    char buffer[8];
    EXPECT_EQ(engine.readBody(buffer, 8), 2);
    EXPECT_FALSE(peer.deleted()) << mode;
    EXPECT_EQ(engine.bodyRemaining, 0);
  }
}

TEST(ChunkedBody, ResponseWithoutClose_KeepsTheConnection) {
  const ScriptedPeer peer("0\r\n\r\n");
  Chunked engine(peer);
  engine.headers["connection"] = "keep-alive";
  char buffer[8];
  EXPECT_EQ(engine.readBody(buffer, 8), 0);
  EXPECT_FALSE(peer.deleted());
}

std::string chunk(std::size_t size) {
  char line[16];
  std::snprintf(line, sizeof line, "%zx\r\n", size);
  return line + std::string(size, 'x') + "\r\n";
}

TEST(ChunkedBody, WholeBodyOfAnyLength_IsGathered) {
  for (const std::size_t size : {1U, 4095U, 4096U, 4097U, 8192U, 10000U}) {
    const ScriptedPeer peer(chunk(size) + "0\r\n\r\nNEXT");
    Chunked engine(peer);
    std::string text = "left";
    EXPECT_EQ(engine.readBody(text), static_cast<int>(size));
    EXPECT_TRUE(text == std::string(size, 'x')) << size;
    EXPECT_EQ(peer.unread(), 4U) << size;
    Chunked again(ScriptedPeer(chunk(size) + "0\r\n\r\n"));
    Bytes bytes;
    EXPECT_EQ(again.readBody(bytes), static_cast<int>(size));
    EXPECT_TRUE(bytes == Bytes(size, 'x')) << size;
  }
}

TEST(ChunkedBody, EmptyWholeBody_GivesZero) {
  Chunked engine(ScriptedPeer("0\r\n\r\n"));
  std::string text = "left";
  EXPECT_EQ(engine.readBody(text), 0);
  EXPECT_EQ(text, "");
}

TEST(ChunkedBody, WholeBodyThatFailsLate_LeavesTheOutputEmpty) {
  const ScriptedPeer peer(chunk(10000) + "5\r\nhel");
  Chunked engine(peer);
  std::string text;
  EXPECT_EQ(engine.readBody(text), -1);
  EXPECT_EQ(text, "");
  EXPECT_TRUE(peer.deleted());
}

}  // namespace
