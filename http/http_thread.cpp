#include "http/http_thread.h"

#include <algorithm>
#include <cstring>

#include "http/header_text.h"
#include "http/no_throw.h"
#include "http/whole_body.h"

namespace zorhtml {

HttpThread::~HttpThread() = default;

int HttpThread::run() {
  try {
    while (serveRequest()) {
    }
  } catch (...) {
    passOnThreadExit();
    dropConnection();
  }
  return 0;
}

// True when the connection goes on.
bool HttpThread::serveRequest() {
  std::string path;
  HttpMethod method = HttpMethod::Unknown;
  const int status = readRequest(method, path);
  if (status != 200) {
    // Announces keep-alive although the connection ends here: deliberate.
    sendResponse(status, "", "text/plain", {});
    return false;
  }
  if (!dispatch(method, path)) return false;
  // Only an explicit wish keeps the connection, whatever the version and whatever the reply announced.
  return toLowerCopy(headers["connection"]) == "keep-alive";
}

bool HttpThread::dispatch(HttpMethod method, const std::string& path) {
  switch (method) {
    case HttpMethod::Get:
      return doGET(path);
    case HttpMethod::Post:
      return doPOST(path);
    case HttpMethod::Head:
      return doHEAD(path);
    default:
      return true;  // the silence towards every other method is deliberate
  }
}

bool HttpThread::sendResponse(int status, const std::string& body, const std::string& contentType,
                              const HttpHeaders& extra) {
  return sendWhole(status, body, contentType, true, extra);
}

bool HttpThread::sendResponseClose(int status, const std::string& body, const std::string& contentType,
                                   const HttpHeaders& extra) {
  return sendWhole(status, body, contentType, false, extra);
}

bool HttpThread::sendWhole(int status, const std::string& body, const std::string& contentType, bool keepAlive,
                           const HttpHeaders& extra) {
  const int length = bodyLength(body.size());
  if (length < 0 || !writeResponseHeader(status, length, contentType, keepAlive, extra)) return false;
  // Not through the slot: a derived class cannot intercept the body of a complete reply.
  return HttpProto::writeBody(body) && finishBody();
}

bool HttpThread::doHEAD(const std::string& /*path*/) { return writeResponseHeader(405, 0, "text/plain", true, {}); }

int HttpThread::fillBuffer() {
  if (fill >= kBufferSize) return fill;
  const int count = readBody(buffer + fill, kBufferSize - fill);
  if (count < 0) return -1;
  fill += count;
  return fill;
}

void HttpThread::consumeBuffer(int count) {
  const int consumed = std::clamp(count, 0, fill);
  fill -= consumed;
  std::memmove(buffer, buffer + consumed, static_cast<std::size_t>(fill));
}

}  // namespace zorhtml
