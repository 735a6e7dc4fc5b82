// Reading of a message's body.
#include <algorithm>

#include "http/header_text.h"
#include "http/http_proto.h"
#include "http/no_throw.h"
#include "http/number_text.h"
#include "http/whole_body.h"

namespace zorhtml {

namespace {

// Up to here a body takes its memory before its bytes have arrived.
constexpr int kEagerBody = 16 << 20;

}  // namespace

int HttpProto::readBody(void* data, int length) {
  if (connection == nullptr || bodyRemaining == 0) return 0;
  length = std::max(length, 0);
  return noThrow(
      [&] {
        return bodyRemaining > 0 ? readFixed(data, length) : readChunked(static_cast<unsigned char*>(data), length);
      },
      [&] {
        dropConnection();
        return -1;
      });
}

bool HttpProto::readBytes(void* data, int count) {
  const auto size = static_cast<std::size_t>(count);
  return connection->read(data, size, timeout) == size;
}

int HttpProto::readFixed(void* data, int length) {
  const int count = std::min<int>(length, bodyRemaining);
  if (!readBytes(data, count)) {
    dropConnection();
    return -1;
  }
  bodyRemaining -= count;
  return count;
}

int HttpProto::readChunked(unsigned char* data, int length) {
  int total = 0;
  for (;;) {
    const int count = std::min<int>(length, chunkRemaining);
    if (chunkRemaining != 0 && !readChunk(data + total, count)) break;
    total += count;
    length -= count;
    if (length == 0) return total;
    if (!readChunkSize()) break;
    if (chunkRemaining == 0) return readTrailer() ? total : -1;
  }
  dropConnection();
  return -1;
}

bool HttpProto::readChunk(unsigned char* data, int count) {
  if (!readBytes(data, count)) return false;
  chunkRemaining -= count;
  if (chunkRemaining == 0) {
    std::string lineEnd;
    readLine(lineEnd);  // neither its text nor its result matters here
  }
  return true;
}

// What follows the number, such as a chunk extension, is ignored. A size above 2147483647 is negative in the counter,
// as a written minus sign makes it; neither is a size.
bool HttpProto::readChunkSize() {
  std::string line;
  if (readLine(line) != LineResult::kComplete) return false;
  const auto size = scanHex(line);
  if (!size || *size > 0x7FFFFFFFU) return false;
  chunkRemaining = static_cast<std::int32_t>(*size);
  return true;
}

bool HttpProto::readTrailer() {
  std::string line;
  bool complete = false;
  do {
    complete = readLine(line) == LineResult::kComplete;
  } while (complete && !line.empty());
  bodyRemaining = 0;
  // A client closes here; a server has its reply to write yet, and closes in finishBody.
  const auto field = headers.find("connection");
  const bool asksClose = field != headers.end() && toLowerCopy(field->second).find("close") != std::string::npos;
  if (!complete || (clientMode == 1 && asksClose)) dropConnection();
  return complete;
}

int HttpProto::readBody(std::string& body) { return readWholeBody(body); }

int HttpProto::readBody(std::vector<unsigned char>& body) { return readWholeBody(body); }

template <class Body>
int HttpProto::readWholeBody(Body& body) {
  body.clear();
  if (connection == nullptr || bodyRemaining == 0) return 0;
  const int length = noThrow(
      [&] {
        if (bodyRemaining > 0) return readAnnounced(body);
        return gatherBlocks(body, [this](void* data, int size) { return readBody(data, size); });
      },
      [this] {
        dropConnection();
        return -1;
      });
  if (length < 0) Body().swap(body);  // its memory goes too
  return length;
}

// One read takes the whole length. A larger body is reserved, so that it is there once however it grows, and sized as
// it arrives: reserved memory is not in use before something is written to it, and an announcement alone exhausts none.
template <class Body>
int HttpProto::readAnnounced(Body& body) {
  const int length = bodyRemaining;
  body.reserve(static_cast<std::size_t>(length));
  if (length <= kEagerBody) {
    body.resize(static_cast<std::size_t>(length));
    return readBody(body.data(), length);
  }
  while (body.size() < static_cast<std::size_t>(length)) {
    const std::size_t at = body.size();
    const int piece = std::min(length - static_cast<int>(at), kEagerBody);
    body.resize(at + static_cast<std::size_t>(piece));
    if (readBody(&body[at], piece) != piece) return -1;
  }
  return length;
}

}  // namespace zorhtml
