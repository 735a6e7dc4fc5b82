// What the tests of a form's reception share: one reception from a scripted stream.
#pragma once

#include <string>

#include "tests/unit/upload/server.h"

inline constexpr const char* kType = "multipart/form-data; boundary=b";

class MultipartTest : public UploadTest {
 protected:
  // Receives `body` under this content type from a stream that then is silent for ever; true when the body was read to
  // its end as well.
  bool receive(const std::string& body, bool multiple = true, const std::string& type = kType,
               const std::string& target = "upload.zip") {
    return receiveFrom(ScriptedPeer(post("/", "Content-Type: " + type + "\r\n", body), ScriptedPeer::End::TimedOut),
                       multiple, target);
  }

  // `held`: what stands in the buffer before.
  bool receiveFrom(const ScriptedPeer& peer, bool multiple = true, const std::string& target = "upload.zip",
                   const std::string& held = "") {
    TestServer server;
    server.fill = static_cast<int>(held.copy(server.buffer, held.size()));
    server.setConnection(peer.stream());
    zorhtml::HttpMethod method = zorhtml::HttpMethod::Unknown;
    std::string target_;
    EXPECT_EQ(server.readRequest(method, target_), 200);
    const bool result = server.receiveMultipart("upload", path(target), multiple);
    EXPECT_EQ(server.fill, 0);
    char byte = 0;
    EXPECT_LE(server.readBody(&byte, 1), 0);
    // A connection that failed has been dropped, whatever was still to come.
    EXPECT_TRUE(peer.unread() == 0 || peer.deleted());
    return result;
  }

  void expectStored(const std::string& body, const Files& files) {
    clearDirectory();
    EXPECT_EQ(receive(body), !files.empty()) << body.substr(0, 200);
    EXPECT_EQ(stored(), files) << body.substr(0, 200);
  }
};

inline const std::string kEnd = "\r\n--b--\r\n";
