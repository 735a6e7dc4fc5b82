// Any bytes on a whole connection of the upload server: it ends, and its memory stays in proportion to the input. The
// installer is replaced by one that logs a line.
#include <jxapp.h>

#include "fuzz/input.h"
#include "fuzz/memory_count.h"
#include "fuzz/source_directory.h"
#include "upload/jx_download_server.h"

namespace {

// What a connection may take whatever it is sent, the buffer of the file that is written above all: 64 KiB.
constexpr std::size_t kMemory = std::size_t{72} * 1024;
// For each byte of the input besides. The most is taken by lines of nothing among a part's headers: while their list
// grows, each is there as three empty strings.
constexpr std::size_t kMemoryPerByte = 4 * sizeof(std::string);

class Server : public JXDownloadServer {
 public:
  explicit Server(zoripc::IPC* stream) { setConnection(stream); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static_cast<void>(jxapp::jxInstallSourceDir());
  Peer peer = peerOf(data, size);
  memoryCount::begin();
  {
    Server server(peer.stream());
    require(server.run() == 0);
  }
  require(memoryCount::peak() <= kMemory + kMemoryPerByte * size);
  require(peer.deleted());
  // An answer takes a request of at least sixteen bytes and is no longer than a page.
  require(peer.written() <= (size / 8 + 1) * 1024);
  std::size_t stored = 0;
  for (const std::string& file : takeStoredFiles()) stored += file.size();
  require(stored <= size);
  return 0;
}
