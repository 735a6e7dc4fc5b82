#include "http/http_proto.h"

namespace zorhtml {

HttpProto::HttpProto(zoripc::IPC* stream) : connection(stream) {}

// A copy has no stream, so that each stream has one owner, and starts without the proxy form.
HttpProto::HttpProto(const HttpProto& other)
    : timeout(other.timeout),
      bodyRemaining(other.bodyRemaining),
      chunkRemaining(other.chunkRemaining),
      basicAuth(other.basicAuth),
      flag(other.flag),
      clientMode(other.clientMode),
      headers(other.headers) {}

HttpProto::~HttpProto() { dropConnection(); }

void HttpProto::setConnection(zoripc::IPC* stream) {
  if (stream == connection) return;
  dropConnection();
  connection = stream;
}

void HttpProto::dropConnection() {
  delete connection;
  connection = nullptr;
}

}  // namespace zorhtml
