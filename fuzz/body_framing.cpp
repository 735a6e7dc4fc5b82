// Any bytes as a message with a body: read by blocks of changing size or whole, never more than was sent.
#include <vector>

#include "fuzz/input.h"
#include "http/http_proto.h"

namespace {

struct Message : zorhtml::HttpProto {
  using HttpProto::bodyRemaining;
  using HttpProto::HttpProto;
};

constexpr int kLargestWhole =
    1 << 16;  // bytes; the room for more, which nobody sends here, would take most of the time

std::size_t readByBlocks(zorhtml::HttpProto& proto, std::size_t seed) {
  std::vector<char> block(5000);
  std::size_t total = 0;
  for (;;) {
    seed = seed * 31 + 7;
    const int length = static_cast<int>(seed % block.size()) + 1;
    const int got = proto.readBody(block.data(), length);
    require(got >= -1 && got <= length);
    if (got <= 0) return total;
    total += static_cast<std::size_t>(got);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Peer peer = peerOf(data, size);
  Message proto(peer.stream());
  zorhtml::HttpMethod method = zorhtml::HttpMethod::Unknown;
  std::string path;
  bool keepOpen = false;
  proto.readHeader(method, path, keepOpen);
  if (size % 2 == 0 || proto.bodyRemaining > kLargestWhole) {
    require(readByBlocks(proto, size) <= size);
  } else {
    std::string body;
    const int length = proto.readBody(body);
    require(length == -1 || static_cast<std::size_t>(length) == body.size());
    require(body.size() <= size);
  }
  return 0;
}
