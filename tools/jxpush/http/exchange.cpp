#include "tools/jxpush/http/exchange.h"

#include <algorithm>
#include <array>

namespace jxpush {

using zorhtml::HttpHeaders;
using zorhtml::HttpMethod;

HttpExchange::HttpExchange(const HttpConnection& connectionSettings) : host_(connectionSettings.address.hostField) {
  timeout = connectionSettings.silenceSeconds * 1000;
  auto stream = std::make_unique<TerminalStream>(connectTo(connectionSettings.address, connectionSettings.waitSeconds,
                                                           connectionSettings.waitForDoor, connectionSettings.stopFd),
                                                 timeout, connectionSettings.stopFd, state_);
  stream_ = stream.get();
  setConnection(stream.release());
}

// The path alone goes through the engine's splitting of URLs, which knows no address in brackets.
bool HttpExchange::begin(HttpMethod method, const std::string& path, int length, const std::string& contentType) {
  const HttpHeaders fields = {{"Host", host_}, {"User-Agent", "jxpush"}};
  return writeRequestHeader(method, path, length, contentType, false, fields);
}

AnswerHead HttpExchange::readHead() {
  AnswerHead head;
  HttpMethod kind = HttpMethod::Unknown;
  std::string path;
  bool keepOpen = false;
  const int status = readHeader(kind, path, keepOpen);
  // A message that cannot be read is reported as a 400 too.
  if (state_.end != StreamState::End::None || kind != HttpMethod::Response) return head;
  head.status = status;
  head.contentType = headers["content-type"];
  return head;
}

bool HttpExchange::readContent(std::string& content, std::size_t limit) {
  std::array<char, 16384> block;
  content.clear();
  for (;;) {
    const int count = readBody(block.data(), static_cast<int>(block.size()));
    if (count <= 0) return count == 0;
    content.append(block.data(), static_cast<std::size_t>(count));
    if (content.size() > limit) return false;
  }
}

}  // namespace jxpush
