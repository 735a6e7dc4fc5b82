// The upload server on a scripted stream, with a source directory of its own.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "tests/support/fake_controller.h"
#include "tests/support/fake_installer.h"
#include "tests/support/scripted_stream.h"
#include "upload/jx_download_server.h"

// The server with its inside open to the tests.
class TestServer : public JXDownloadServer {
 public:
  using JXDownloadServer::buffer;
  using JXDownloadServer::fill;
  using JXDownloadServer::headers;
  using JXDownloadServer::receiveMultipart;
};

using Files = std::map<std::string, std::string>;  // name and content

class UploadTest : public testing::Test {
 protected:
  UploadTest();
  void TearDown() override;

  // What the directory holds now; anything that is no regular file is listed as "?".
  Files stored() const;
  void clearDirectory() const;
  std::string path(const std::string& name) const { return directory + "/" + name; }

  // Serves the scripted connection to its end and returns what was written.
  static std::string serve(const ScriptedPeer& peer);
  static std::string serve(const std::string& wire) { return serve(ScriptedPeer(wire)); }

  std::string directory;  // without anything in it
  FakeInstaller& installer = FakeInstaller::instance();
  FakeController& controller = FakeController::instance();
};

// A whole request with `body`; `fields` are header lines that end in "\r\n".
std::string post(const std::string& path, const std::string& fields, const std::string& body);
std::string postForm(const std::string& body);                          // to "/upload", with the boundary "b"
std::string chunked(const std::string& body, std::size_t size);         // a body in chunks
std::string part(const std::string& head, const std::string& content);  // from "--b" to before the next line break
std::string filePart(const std::string& content, const std::string& field = "upload");

std::string reply(const std::string& status, const std::string& type, const std::string& body);
std::string resultPage(const std::string& middle);
extern const char* const kFormPage;
extern const char* const kUploadFailed;  // the whole reply
