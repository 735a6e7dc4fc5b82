#include "tests/unit/upload/server.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace {

std::vector<std::string> namesIn(const std::string& directory) {
  std::vector<std::string> names;
  DIR* const stream = opendir(directory.c_str());
  if (stream == nullptr) throw std::runtime_error("cannot list " + directory);
  while (const dirent* const entry = readdir(stream)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  closedir(stream);
  return names;
}

void removeAll(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
    for (const std::string& name : namesIn(path)) removeAll(std::string(path).append("/").append(name));
  }
  std::remove(path.c_str());
}

std::string contentOf(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return "?";
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace

UploadTest::UploadTest() {
  std::string made = testing::TempDir() + "jxupload-XXXXXX";
  if (mkdtemp(made.data()) == nullptr) throw std::runtime_error("no directory");
  directory = made;
  installer.reset();
  controller.reset();
  installer.sourceDir = directory;
}

void UploadTest::TearDown() { removeAll(directory); }

Files UploadTest::stored() const {
  Files files;
  for (const std::string& name : namesIn(directory)) files[name] = contentOf(path(name));
  return files;
}

void UploadTest::clearDirectory() const {
  for (const std::string& name : namesIn(directory)) removeAll(path(name));
}

std::string UploadTest::serve(const ScriptedPeer& peer) {
  {
    TestServer server;
    server.setConnection(peer.stream());
    EXPECT_EQ(server.run(), 0);
  }
  EXPECT_TRUE(peer.deleted());
  return peer.written();
}

std::string post(const std::string& path, const std::string& fields, const std::string& body) {
  return "POST " + path + " HTTP/1.1\r\n" + fields + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
         body;
}

std::string postForm(const std::string& body) {
  return post("/upload", "Content-Type: multipart/form-data; boundary=b\r\n", body);
}

std::string chunked(const std::string& body, std::size_t size) {
  std::ostringstream out;
  out << std::hex;
  for (std::size_t at = 0; at < body.size(); at += size) {
    const std::string piece = body.substr(at, size);
    out << piece.size() << "\r\n" << piece << "\r\n";
  }
  out << "0\r\n\r\n";
  return out.str();
}

std::string part(const std::string& head, const std::string& content) { return "--b\r\n" + head + "\r\n" + content; }

std::string filePart(const std::string& content, const std::string& field) {
  return part("Content-Disposition: form-data; name=\"" + field + "\"; filename=\"a.zip\"\r\n", content);
}

std::string reply(const std::string& status, const std::string& type, const std::string& body) {
  return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\nContent-Type: " + type +
         "\r\nConnection: Keep-Alive\r\n\r\n" + body;
}

std::string resultPage(const std::string& middle) {
  return reply("200 OK", "text/html",
               "<!DOCTYPE html>\n<html>\n<body>\n<form action='/' method='GET'>\n" + middle +
                   "<input type='submit' value='OK'>\n</form>\n</body>\n</html>\n");
}

const char* const kFormPage =
    "HTTP/1.1 200 OK\r\nContent-Length: 340\r\nContent-Type: text/html\r\nConnection: Keep-Alive\r\n\r\n"
    "<!DOCTYPE html>\n<html>\n<body>\n<form action='upload' method='post' enctype='multipart/form-data'>\n"
    "  <h1>JX application file upload</h1>\n  Filename: <input type='file' name='upload' multiple><br>\n"
    "  <input type='submit' value='Upload file'>\n</form><br>\n"
    "Certificates on terminal: <a href='certificates.tar'>certificates.tar</a>\n</body>\n</html>\n";

const char* const kUploadFailed =
    "HTTP/1.1 200 OK\r\nContent-Length: 136\r\nContent-Type: text/html\r\nConnection: Keep-Alive\r\n\r\n"
    "<!DOCTYPE html>\n<html>\n<body>\n<form action='/' method='GET'>\nUpload failed<br>\n"
    "<input type='submit' value='OK'>\n</form>\n</body>\n</html>\n";
