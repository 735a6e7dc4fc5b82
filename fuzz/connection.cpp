// Any bytes on a whole connection of the upload server: it ends, and its memory stays in proportion to the input. The
// installer is replaced by one that logs a line.
#include <jxapp.h>

#include "fuzz/input.h"
#include "fuzz/source_directory.h"
#include "upload/jx_download_server.h"

namespace {

class Server : public JXDownloadServer {
 public:
  explicit Server(zoripc::IPC* stream) { setConnection(stream); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ScriptedPeer peer = peerOf(data, size);
  {
    Server server(peer.stream());
    require(server.run() == 0);
  }
  require(peer.deleted());
  // An answer takes a request of at least sixteen bytes and is no longer than a page.
  require(peer.written().size() <= (size / 8 + 1) * 1024);
  emptySourceDirectory();
  return 0;
}
