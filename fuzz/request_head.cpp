// Any bytes as a message's head: the statuses that are stated, a target that begins with a slash and takes no parent
// step.
#include "fuzz/input.h"
#include "http/http_proto.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Peer peer = peerOf(data, size);
  zorhtml::HttpProto proto(peer.stream());
  zorhtml::HttpMethod method = zorhtml::HttpMethod::Unknown;
  std::string path;
  const int status = proto.readRequest(method, path);
  require(status == 200 || status == 400 || status == 408);
  if (status != 200) return 0;
  const std::string segments = path.substr(0, path.find('?'));
  require(path.empty() || path.front() == '/');
  require(segments.find("//") == std::string::npos && segments.find("/../") == std::string::npos);
  require(segments.find('\\') == std::string::npos);
  std::string user;
  std::string password;
  proto.getBasicAuth(user, password);
  require(user.find(':') == std::string::npos);
  return 0;
}
