// Forms that end early, and disks that take no more: no part of a file stays.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "tests/unit/upload/multipart.h"

namespace {

// A body that ends early: with an announced length that says so, and as the last chunk.
TEST_F(MultipartTest, BodyCutAtEveryEdge_LeavesWholeFilesAlone) {
  const std::string body = filePart("first") + "\r\n" + filePart("second") + kEnd;
  const std::size_t firstStored = body.find("first\r\n--b") + 10;
  const std::size_t secondStored = body.find("second\r\n--b") + 11;
  for (std::size_t cut = 0; cut <= body.size(); ++cut) {
    Files files;
    if (cut >= firstStored) files["upload-0.zip"] = "first";
    if (cut >= secondStored) files["upload-1.zip"] = "second";
    expectStored(body.substr(0, cut), files);
  }
}

// The connection ends within a body that announced more: reading fails, and everything but a file whose end had been
// read before goes.
TEST_F(MultipartTest, ConnectionCutAtEveryEdge_LeavesWholeFilesAlone) {
  const std::string content(5000, 'c');
  const std::string body = filePart("first") + "\r\n" + filePart(content) + "\r\n" + filePart("third") + kEnd;
  const std::string wire = post("/", std::string("Content-Type: ") + kType + "\r\n", body);
  const std::size_t head = wire.size() - body.size();
  // Reads fill the buffer: the first file is complete once the one that begins with its content has succeeded.
  const std::size_t firstStored = body.find("first") + 4096;
  for (const auto end : {ScriptedPeer::End::Closed, ScriptedPeer::End::TimedOut, ScriptedPeer::End::Failed}) {
    for (std::size_t cut = 0; cut < body.size(); cut += cut < 4000 ? 61 : 1) {
      clearDirectory();
      const bool stores = cut >= firstStored;
      EXPECT_EQ(receiveFrom(ScriptedPeer(wire.substr(0, head + cut), end)), stores) << cut;
      EXPECT_EQ(stored(), stores ? (Files{{"upload-0.zip", "first"}}) : Files()) << cut;
    }
  }
}

// A silence fails the reading as the end does: what the peer sends after it has thought for a while counts no more.
TEST_F(MultipartTest, SilenceAtEveryEdge_LeavesWholeFilesAloneWhateverFollows) {
  const std::string content(5000, 'c');
  const std::string body = filePart("first") + "\r\n" + filePart(content) + kEnd;
  const std::string wire = post("/", std::string("Content-Type: ") + kType + "\r\n", body);
  const std::size_t head = wire.size() - body.size();
  const std::size_t firstStored = body.find("first") + 4096;
  for (std::size_t cut = 0; cut < body.size(); cut += cut < 4000 ? 61 : 7) {
    clearDirectory();
    const bool stores = cut >= firstStored;
    ScriptedPeer peer(wire.substr(0, head + cut));
    EXPECT_EQ(receiveFrom(peer.pause().send(wire.substr(head + cut))), stores) << cut;
    EXPECT_EQ(stored(), stores ? (Files{{"upload-0.zip", "first"}}) : Files()) << cut;
  }
}

TEST_F(MultipartTest, FailedRead_EndsTheDrain) {
  // No form, and a body that fails after the first buffer: the drain must not go on for ever.
  const std::string wire = post("/", "Content-Type: text/plain\r\n", std::string(10000, 'x'));
  EXPECT_FALSE(receiveFrom(ScriptedPeer(wire.substr(0, wire.size() - 1), ScriptedPeer::End::TimedOut)));
}

TEST_F(MultipartTest, BrokenChunk_LeavesNoFile) {
  const std::string head =
      std::string("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\nContent-Type: ") + kType + "\r\n\r\n";
  const std::string whole = chunked(filePart(std::string(9000, 'c')) + kEnd, 5000);
  for (const char* broken : {"zz\r\n", "-5\r\nhello", "ffffffffffff\r\nx", ""}) {
    const std::string wire = head + whole.substr(0, whole.find("\r\n", 5004) + 2) + broken;
    EXPECT_FALSE(receiveFrom(ScriptedPeer(wire))) << broken;
    EXPECT_EQ(stored(), Files()) << broken;
  }
}

TEST_F(MultipartTest, NoBody_IsNoUpload) {
  EXPECT_FALSE(receive(""));
  EXPECT_FALSE(receiveFrom(ScriptedPeer(std::string("POST / HTTP/1.1\r\nContent-Type: ") + kType + "\r\n\r\n")));
}

TEST_F(MultipartTest, DirectoryThatCannotBeMade_AbandonsAndDrains) {
  std::ofstream(path("file")) << "in the way";
  EXPECT_FALSE(receive(filePart("x") + "\r\n" + filePart("y") + kEnd, true, kType, "file/deep/upload.zip"));
  EXPECT_EQ(stored(), (Files{{"file", "in the way"}}));
}

TEST_F(MultipartTest, FileThatCannotBeOpened_AbandonsAndLeavesItAlone) {
  ASSERT_EQ(mkdir(path("upload-1.zip").c_str(), 0755), 0);
  EXPECT_TRUE(receive(filePart("one") + "\r\n" + filePart("two") + "\r\n" + filePart("three") + kEnd));
  EXPECT_EQ(stored(), (Files{{"upload-0.zip", "one"}, {"upload-1.zip", "?"}}));
}

TEST_F(MultipartTest, WriteErrorAtTheClose_RemovesTheFile) {
  ASSERT_EQ(symlink("/dev/full", path("upload-0.zip").c_str()), 0);
  EXPECT_FALSE(receive(filePart("small") + kEnd));
  EXPECT_EQ(stored(), Files());
  EXPECT_EQ(access("/dev/full", F_OK), 0);
}

TEST_F(MultipartTest, WriteErrorInMidFile_RemovesTheFileAndDrains) {
  ASSERT_EQ(symlink("/dev/full", path("upload-0.zip").c_str()), 0);
  EXPECT_FALSE(receive(filePart(std::string(500000, 'x')) + "\r\n" + filePart("next") + kEnd));
  EXPECT_EQ(stored(), Files());
}

TEST_F(MultipartTest, WriteErrorOfALaterFile_KeepsTheEarlierOne) {
  ASSERT_EQ(symlink("/dev/full", path("upload-1.zip").c_str()), 0);
  EXPECT_TRUE(receive(filePart("one") + "\r\n" + filePart("two") + "\r\n" + filePart("three") + kEnd));
  EXPECT_EQ(stored(), (Files{{"upload-0.zip", "one"}}));
}

// Limits how large a file this process can write.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t size) : oldHandler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &old_);
    const rlimit limit{size, old_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &old_);
    std::signal(SIGXFSZ, oldHandler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit old_{};
  void (*oldHandler_)(int);
};

TEST_F(MultipartTest, FileTooLarge_IsRemoved) {
  for (const std::size_t size : {100001U, 200000U, 1000000U}) {
    bool result = true;
    {
      const FileSizeLimit limit(100000);
      result = receive(filePart(std::string(size, 'x')) + kEnd);
    }
    EXPECT_FALSE(result) << size;
    EXPECT_EQ(stored(), Files()) << size;
  }
  bool result = false;
  {
    const FileSizeLimit limit(100000);
    result = receive(filePart(std::string(100000, 'x')) + kEnd);
  }
  EXPECT_TRUE(result);
}

TEST_F(MultipartTest, WithoutASource_NoDescriptorIsLeft) {
  const int before = open("/dev/null", O_RDONLY);
  close(before);
  receive(filePart("x") + kEnd);
  receive(filePart("cut"));
  const int after = open("/dev/null", O_RDONLY);
  close(after);
  EXPECT_EQ(before, after);
}

}  // namespace
