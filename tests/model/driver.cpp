// Answers cases from standard input with what the program makes of them, one line of text each.
// A case: a letter ('Q' a message read as a server, 'A' as a client, 'F' a form), the place of a silence in the bytes
// (-1: none), a letter for what follows them ('C' the end of the connection, 'T' silence, 'F' a failure) and their
// number, the numbers as decimal text, each of the four followed by a blank; then the bytes.
//
// Usage: model_driver DIRECTORY (for the files of forms)
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "base/text.h"
#include "tests/support/scripted_stream.h"
#include "upload/jx_download_server.h"

namespace {

std::string hex(const std::string& bytes) {
  if (bytes.empty()) return "-";
  return base::hexDigits(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

// Opens the engine's state to the comparison.
class Probe : public JXDownloadServer {
 public:
  explicit Probe(zoripc::IPC* stream) { setConnection(stream); }

  std::string message(bool server) {
    zorhtml::HttpMethod method = zorhtml::HttpMethod::Unknown;
    std::string path;
    bool keepOpen = false;
    const int status = readHeader(method, path, keepOpen);
    if (server) clientMode = 0;
    std::string text = std::to_string(status) + " " + std::to_string(static_cast<int>(method)) + " " + hex(path) + " " +
                       std::to_string(static_cast<int>(keepOpen)) + " " + std::to_string(bodyRemaining);
    for (const auto& field : headers) text += " " + hex(field.first) + "=" + hex(field.second);
    if (!keepOpen) return text;
    std::string body;
    const int length = readBody(body);
    return text + " | " + std::to_string(length) + " " + (length > 0 ? hex(body) : "-") + " " +
           std::to_string(static_cast<int>(connection != nullptr)) + " " + std::to_string(bodyRemaining);
  }

  std::string form(const std::string& directory) {
    zorhtml::HttpMethod method = zorhtml::HttpMethod::Unknown;
    std::string path;
    if (readRequest(method, path) != 200) return "no request";
    std::string text = std::to_string(static_cast<int>(receiveMultipart("upload", directory + "/upload.zip", true)));
    for (int number = 0;; ++number) {
      const std::string name = directory + "/upload-" + std::to_string(number) + ".zip";
      std::ifstream file(name, std::ios::binary);
      if (!file) return text + " " + std::to_string(static_cast<int>(connection != nullptr));
      text += " " + hex(std::string(std::istreambuf_iterator<char>(file), {}));
      std::remove(name.c_str());
    }
  }
};

std::string answer(char kind, const std::string& bytes, int silence, char end, const std::string& directory) {
  using End = ScriptedPeer::End;
  ScriptedPeer peer("", end == 'C' ? End::Closed : end == 'T' ? End::TimedOut : End::Failed);
  const std::size_t place = silence < 0 ? bytes.size() : static_cast<std::size_t>(silence);
  peer.send(bytes.substr(0, place));
  if (silence >= 0) peer.pause();
  peer.send(bytes.substr(place));
  std::string text;
  {
    Probe probe(peer.stream());
    text = kind == 'F' ? probe.form(directory) : probe.message(kind == 'Q');
  }
  return text + " " + std::to_string(peer.unread());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  char kind = 0;
  int silence = 0;
  char end = 0;
  std::size_t size = 0;
  while (std::cin >> kind >> silence >> end >> size) {
    std::string bytes(size, '\0');
    std::cin.get();
    std::cin.read(bytes.data(), static_cast<std::streamsize>(size));
    std::cout << answer(kind, bytes, silence, end, argv[1]) << std::endl;
  }
}
