// Reading of a message's body.
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <exception>

#include "http/header_text.h"
#include "http/http_proto.h"
#include "http/number_text.h"
#include "http/whole_body.h"

namespace zorhtml {

namespace {

// Up to here the output is sized before its bytes have arrived.
constexpr int kEagerBody = 1 << 20;

// Memory whose pages are taken when they are first written.
class LazyBlock {
 public:
  explicit LazyBlock(std::size_t size)
      : size_(size), data_(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {}
  LazyBlock(const LazyBlock&) = delete;
  LazyBlock& operator=(const LazyBlock&) = delete;
  ~LazyBlock() {
    if (data_ != MAP_FAILED) munmap(data_, size_);
  }

  // Null where there is no room.
  unsigned char* data() const { return data_ == MAP_FAILED ? nullptr : static_cast<unsigned char*>(data_); }

 private:
  std::size_t size_;
  void* data_;
};

}  // namespace

int HttpProto::readBody(void* data, int length) {
  if (connection == nullptr || bodyRemaining == 0) return 0;
  length = std::max(length, 0);
  return bodyRemaining > 0 ? readFixed(data, length) : readChunked(static_cast<unsigned char*>(data), length);
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
  if (readLine(line) != LineResult::Complete) return false;
  const auto size = scanHex(line);
  if (!size || *size > 0x7FFFFFFFU) return false;
  chunkRemaining = static_cast<std::int32_t>(*size);
  return true;
}

bool HttpProto::readTrailer() {
  std::string line;
  bool complete = false;
  do {
    complete = readLine(line) == LineResult::Complete;
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
  int length = -1;
  try {
    length = bodyRemaining > 0 ? readAnnounced(body)
                               : gatherBlocks(body, [this](void* data, int size) { return readBody(data, size); });
  } catch (const std::exception&) {
    length = -1;  // a body that there is no memory for cannot be read
  }
  if (length < 0) {
    dropConnection();
    body.clear();
  }
  return length;
}

// One read takes the whole length. A large one goes through pages that take no memory until their bytes arrive, so that
// an announcement alone cannot exhaust it; where there is no room for them the body cannot be read.
template <class Body>
int HttpProto::readAnnounced(Body& body) {
  const auto size = static_cast<std::size_t>(bodyRemaining);
  if (bodyRemaining <= kEagerBody) {
    body.resize(size);
    return readBody(body.data(), bodyRemaining);
  }
  const LazyBlock block(size);
  if (block.data() == nullptr) return -1;
  const int length = readBody(block.data(), bodyRemaining);
  if (length < 0) return -1;
  body.resize(size);
  std::memcpy(body.data(), block.data(), size);
  return length;
}

}  // namespace zorhtml
