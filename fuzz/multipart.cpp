// Any bytes as a form, cut anywhere: what is stored was sent, and a result is true exactly when something is stored.
#include <jxapp.h>

#include "fuzz/input.h"
#include "fuzz/source_directory.h"
#include "upload/jx_download_server.h"

namespace {

class Server : public JXDownloadServer {
 public:
  explicit Server(zoripc::IPC* stream) { setConnection(stream); }

  bool receive() {
    zorhtml::HttpMethod method = zorhtml::HttpMethod::Unknown;
    std::string path;
    readRequest(method, path);
    return receiveMultipart("upload", std::string(jxapp::jxInstallSourceDir()) + "/upload.zip", true);
  }
};

const std::string kHead = "POST /upload HTTP/1.1\r\nContent-Type: multipart/form-data; boundary=x\r\nContent-Length: ";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string body(reinterpret_cast<const char*>(data) + 1, size - 1);
  ScriptedPeer peer;
  peer.sendInPieces(kHead + std::to_string(body.size()) + "\r\n\r\n" + body, data[0] + 1U);
  Server server(peer.stream());
  const bool result = server.receive();
  const StoredFiles stored = emptySourceDirectory();
  require(result == (stored.count > 0));
  require(stored.bytes <= body.size());
  require(peer.unread() == 0);
  return 0;
}
