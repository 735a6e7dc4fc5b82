#include <gtest/gtest-death-test.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include "shell/source_directory.h"
#include "tests/unit/upload/server.h"

namespace {

class HandlersTest : public UploadTest {
 protected:
  static std::string get(const std::string& target) { return serve("GET " + target + " HTTP/1.1\r\n\r\n"); }
};

const std::string kNotFound = reply("404 Not Found", "text/plain", "404 File not found");

TEST_F(HandlersTest, Root_IsTheFormPage) {
  for (const char* target : {"/", "/?", "/?lang=en", "/?/x"}) EXPECT_EQ(get(target), kFormPage) << target;
}

TEST_F(HandlersTest, OtherGets_Are404) {
  for (const char* target : {"/index.html", "/upload", "/a?", "/a/?x", "/certificates.ta", "/certificates_tar",
                             "/Certificates.tar", "/x/certificates.tar"}) {
    EXPECT_EQ(get(target), kNotFound) << target;
  }
}

TEST_F(HandlersTest, Certificates_AreTheArchive) {
  installer.archive = std::string("tar\0bytes", 9);
  for (const char* target : {"/certificates.tar", "/certificates.tar?x", "/certificates.tarball",
                             "/certificates.tar.gz", "/certificates.tar/x"}) {
    EXPECT_EQ(get(target), reply("200 OK", "application/x-tar", installer.archive)) << target;
  }
}

TEST_F(HandlersTest, FailedArchive_IsSentAsFarAsItWent) {
  installer.archiveComplete = false;
  EXPECT_EQ(get("/certificates.tar"), reply("200 OK", "application/x-tar", ""));
  installer.archive = "part";
  EXPECT_EQ(get("/certificates.tar"), reply("200 OK", "application/x-tar", "part"));
}

TEST_F(HandlersTest, Head_Is405) {
  EXPECT_EQ(serve("HEAD / HTTP/1.1\r\n\r\n"), reply("405 Method Not Allowed", "text/plain", ""));
}

TEST_F(HandlersTest, OtherPosts_Are404AfterTheirBody) {
  for (const char* target : {"/other", "/", "/upload?x", "/upload/", "/Upload"}) {
    const ScriptedPeer peer(post(target, "Connection: keep-alive\r\n", std::string(10000, 'z')) +
                            "GET / HTTP/1.1\r\n\r\n");
    EXPECT_EQ(serve(peer), kNotFound + kFormPage) << target;
  }
  EXPECT_EQ(installer.installations, 0);
  EXPECT_EQ(installer.directoriesMade, 0);
}

TEST_F(HandlersTest, OtherPostsBody_IsReadInBlocksOfTheBuffer) {
  const ScriptedPeer peer(post("/other", "", std::string(10000, 'z')));
  serve(peer);
  std::vector<std::size_t> sizes;
  for (const ScriptedPeer::Read& read : peer.reads()) {
    if (read.size > 1) sizes.push_back(read.size);
  }
  EXPECT_EQ(sizes, (std::vector<std::size_t>{4096, 4096, 1808}));
}

TEST_F(HandlersTest, OtherPostInChunks_IsReadToItsEnd) {
  const std::string head = "POST /other HTTP/1.1\r\nConnection: keep-alive\r\nTransfer-Encoding: chunked\r\n\r\n";
  for (const std::size_t size : {1U, 100U, 4096U}) {
    EXPECT_EQ(serve(head + chunked(std::string(size, 'z'), 50) + "GET / HTTP/1.1\r\n\r\n"), kNotFound + kFormPage);
  }
}

TEST_F(HandlersTest, OtherPostCutShort_Ends) {
  const std::string whole = post("/other", "Connection: keep-alive\r\n", std::string(10000, 'z'));
  EXPECT_EQ(serve(whole.substr(0, whole.size() - 1)), "");
}

TEST_F(HandlersTest, OtherPostWithoutABody_Is404) { EXPECT_EQ(serve("POST /other HTTP/1.1\r\n\r\n"), kNotFound); }

TEST_F(HandlersTest, Upload_StoresInstallsAndReports) {
  installer.messages = {"Installed <a>\n", "Warning: b\n"};
  Files found;
  installer.onInstall = [&] { found = stored(); };
  EXPECT_EQ(serve(postForm(filePart("one\r\n") + "\r\n" + filePart("two") + "\r\n--b--\r\n")),
            resultPage("Upload successful<br>\nInstalled &lt;a&gt;<br><span style='color:#f00'>Warning: b<br></span>"));
  EXPECT_EQ(found, (Files{{"upload-0.zip", "one\r\n"}, {"upload-1.zip", "two"}}));
  EXPECT_EQ(installer.installations, 1);
  EXPECT_EQ(installer.directoriesMade, 1);
  EXPECT_EQ(controller.commands(), std::vector<std::string>{"libmac_scan_manifests"});
}

TEST_F(HandlersTest, AnotherStartOfTheProgram_TakesNothingFromAnUpload) {
  Files found;
  installer.onInstall = [&] {
    removeLeftArchives();
    found = stored();
  };
  serve(postForm(filePart("one") + "\r\n--b--\r\n"));
  EXPECT_EQ(found, (Files{{"upload-0.zip", "one"}}));
  removeLeftArchives();
  EXPECT_EQ(stored(), Files());
}

TEST_F(HandlersTest, UploadOfAnotherField_InstallsNothing) {
  EXPECT_EQ(serve(postForm(filePart("one", "other") + "\r\n--b--\r\n")), kUploadFailed);
  EXPECT_EQ(stored(), Files());
  EXPECT_EQ(installer.installations, 0);
  EXPECT_EQ(controller.sent().size(), 0U);
}

TEST_F(HandlersTest, UploadAfterAFailedOne_IsServedOnTheSameConnection) {
  const std::string keep = "Connection: keep-alive\r\n";
  const std::string type = "Content-Type: multipart/form-data; boundary=b\r\n";
  const std::string body = filePart("one") + "\r\n--b--\r\n";
  EXPECT_EQ(serve(post("/upload", keep, body) + post("/upload", keep + type, body) + "GET / HTTP/1.1\r\n\r\n"),
            kUploadFailed + resultPage("Upload successful<br>\n") + kFormPage);
  EXPECT_EQ(stored(), (Files{{"upload-0.zip", "one"}}));
}

TEST_F(HandlersTest, Reply_GoesOutOnlyAfterTheInstallation) {
  const ScriptedPeer peer(postForm(filePart("one") + "\r\n--b--\r\n"));
  int writes = -1;
  installer.onInstall = [&] { writes = peer.writeCalls(); };
  controller.onNotify([&] { writes += peer.writeCalls(); });
  serve(peer);
  EXPECT_EQ(writes, 0);
}

TEST_F(HandlersTest, ExceptionInTheInstallation_DropsTheConnectionAlone) {
  installer.onInstall = [] { throw std::bad_alloc(); };
  EXPECT_EQ(serve(postForm(filePart("one") + "\r\n--b--\r\n")), "");
  installer.onInstall = nullptr;
  EXPECT_EQ(serve(postForm(filePart("one") + "\r\n--b--\r\n")), resultPage("Upload successful<br>\n"));
}

// A server in the middle of whose reception, and again before whose reply, something else happens.
class InterruptedServer : public TestServer {
 public:
  std::function<void()> amidBody;
  std::function<void()> beforeReply;

  using TestServer::readBody;
  int readBody(void* data, int length) override {
    if (bodyRemaining < kBufferSize) std::exchange(amidBody, [] {})();
    return TestServer::readBody(data, length);
  }
  bool sendResponse(int status, const std::string& body, const std::string& contentType,
                    const zorhtml::HttpHeaders& extra) override {
    beforeReply();
    return TestServer::sendResponse(status, body, contentType, extra);
  }
};

TEST_F(HandlersTest, ExceptionAmidAFile_LeavesNothingOfIt) {
  const ScriptedPeer peer(postForm(filePart("one") + "\r\n" + filePart(std::string(9000, 'c')) + "\r\n--b--\r\n"));
  InterruptedServer server;
  server.amidBody = [&] {
    EXPECT_EQ(stored().size(), 2U);
    throw std::bad_alloc();
  };
  server.setConnection(peer.stream());
  server.run();
  EXPECT_EQ(peer.written(), "");
  EXPECT_EQ(stored(), Files());
}

// Whatever one upload held over its reception or its reply, the other one would wait for without end.
TEST_F(HandlersTest, UploadAmidAnotherAndBeforeItsReply_IsServedAtOnce) {
  const std::string answer = resultPage("Upload successful<br>\n");
  const std::string form = postForm(filePart(std::string(9000, 'c')) + "\r\n--b--\r\n");
  const auto uploadAnother = [&] { EXPECT_EQ(serve(form), answer); };
  const ScriptedPeer peer(form);
  {
    InterruptedServer server;
    server.amidBody = [&] {
      EXPECT_EQ(installer.directoriesMade, 1);
      EXPECT_EQ(stored().size(), 1U);
      uploadAnother();
    };
    server.beforeReply = uploadAnother;
    server.setConnection(peer.stream());
    server.run();
  }
  EXPECT_EQ(peer.written(), answer);
  EXPECT_EQ(installer.installations, 3);
}

// A request of each kind that is answered, each with this field.
std::vector<std::string> requestsOfEachKind(const std::string& connection) {
  const std::string keep = "Connection: " + connection + "\r\n";
  const std::string type = "Content-Type: multipart/form-data; boundary=b\r\n";
  return {"GET / HTTP/1.1\r\n" + keep + "\r\n",      "GET /certificates.tar HTTP/1.1\r\n" + keep + "\r\n",
          "GET /other HTTP/1.1\r\n" + keep + "\r\n", post("/upload", keep + type, filePart("one") + "\r\n--b--\r\n"),
          post("/upload", keep, "no form"),          post("/other", keep, "body")};
}

TEST_F(HandlersTest, EveryReply_KeepsTheConnection) {
  const std::vector<std::string> kept = requestsOfEachKind("keep-alive");
  const std::vector<std::string> closed = requestsOfEachKind("close");
  for (std::size_t i = 0; i < kept.size(); ++i) {
    EXPECT_EQ(serve(kept[i] + "GET / HTTP/1.1\r\n\r\n"), serve(closed[i]) + kFormPage) << kept[i];
  }
}

TEST_F(HandlersTest, ReplyThatCannotBeWritten_EndsTheConnection) {
  for (const std::string& request : requestsOfEachKind("keep-alive")) {
    ScriptedPeer peer(request + "GET / HTTP/1.1\r\n\r\n");
    peer.failWrite(1);
    serve(peer);
    EXPECT_EQ(peer.writeCalls(), 1) << request;
  }
}

TEST_F(HandlersTest, SourceDirectoryOf116Characters_IsTheLongest) {
  installer.sourceDir = directory + std::string(116 - directory.size() - 1, '/') + "d";
  ASSERT_EQ(installer.sourceDir.size(), 116U);
  EXPECT_EQ(serve(postForm(filePart("one") + "\r\n--b--\r\n")), resultPage("Upload successful<br>\n"));
  EXPECT_EQ(stored(), (Files{{"d", "?"}}));
}

using HandlersDeathTest = HandlersTest;

TEST_F(HandlersDeathTest, LongerSourceDirectory_EndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  installer.sourceDir = directory + std::string(117 - directory.size(), '/');
  EXPECT_EXIT(serve(postForm("")), testing::KilledBySignal(SIGABRT), "");
}

// Calls what stands in slot `slot` of the table that `object` begins with.
template <class Result, class... Arguments>
Result callSlot(void* object, std::size_t slot, Arguments... arguments) {
  void* const* table = nullptr;
  std::memcpy(&table, object, sizeof table);
  Result (*function)(void*, Arguments...) = nullptr;
  std::memcpy(&function, table + slot, sizeof function);
  return function(object, arguments...);
}

// What the handler in slot `slot` writes for `path`.
std::string writtenBySlot(std::size_t slot, const std::string& path) {
  const ScriptedPeer peer;
  TestServer server;
  server.headers["http-version"] = "HTTP/1.1";
  server.setConnection(peer.stream());
  EXPECT_TRUE((callSlot<bool, const std::string&>(&server, slot, path)));
  return peer.written();
}

TEST_F(HandlersTest, HandlersStandInTheBasesSlots) {
  EXPECT_EQ(writtenBySlot(22, "/"), kFormPage);
  EXPECT_EQ(writtenBySlot(22, ""), kNotFound);
  EXPECT_EQ(writtenBySlot(23, "/other"), kNotFound);
  EXPECT_EQ(writtenBySlot(24, "/"), reply("405 Method Not Allowed", "text/plain", ""));
}

TEST_F(HandlersTest, Destructors_StandInTheBasesSlots) {
  const ScriptedPeer first;
  const ScriptedPeer second;
  alignas(JXDownloadServer) unsigned char place[sizeof(JXDownloadServer)];
  auto* const placed = new (static_cast<void*>(place)) JXDownloadServer;
  placed->setConnection(first.stream());
  callSlot<void>(placed, 1);
  EXPECT_TRUE(first.deleted());
  auto* const allocated = new JXDownloadServer;
  allocated->setConnection(second.stream());
  callSlot<void>(allocated, 2);  // a leak here is found by the address sanitizer
  EXPECT_TRUE(second.deleted());
}

TEST_F(HandlersTest, Class_HasNoDataOfItsOwnAndCanBeCopied) {
  EXPECT_EQ(sizeof(JXDownloadServer), sizeof(zorhtml::HttpThread));
  EXPECT_TRUE(std::is_copy_constructible<JXDownloadServer>::value);
  TestServer prototype;
  std::memcpy(prototype.buffer, "abc", 3);
  prototype.fill = 3;
  const TestServer copy(prototype);
  EXPECT_EQ(std::string(copy.buffer, static_cast<std::size_t>(copy.fill)), "abc");
}

}  // namespace
