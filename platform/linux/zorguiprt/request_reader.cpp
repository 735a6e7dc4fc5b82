#include "platform/linux/zorguiprt/request_reader.h"

#include <algorithm>
#include <array>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <limits>
#include <string>

#include "base/ignore.h"
#include "base/text.h"

namespace jxplatform {
namespace {

namespace http = boost::beast::http;

using Piece = std::array<char, 4096>;

// Feeds the parser with what comes over the connection. The parser is told of no limit, for it has none for the line of
// a chunk and counts a field at a time: what it has not taken, and all of the head, stays below kLargestHead here.
class RequestReader {
 public:
  explicit RequestReader(Connection& connection) : connection_(connection) {
    parser_.header_limit(std::numeric_limits<std::uint32_t>::max());
    parser_.body_limit(std::numeric_limits<std::uint64_t>::max());
  }

  Reading readHead(Request& request);
  void readBody(Request& request);

 private:
  bool step();
  bool receive();
  [[nodiscard]] std::size_t room() const;
  void inviteBody();
  std::uint64_t takeBody(std::string& body);

  Connection& connection_;
  http::request_parser<http::buffer_body> parser_;
  std::string unread_;     // what has come and the parser has not taken
  std::size_t taken_ = 0;  // bytes that the parser took
};

Reading RequestReader::readHead(Request& request) {
  while (!parser_.is_header_done()) {
    if (step()) continue;
    if (room() == 0) return Reading::kHeadTooLong;
    return parser_.got_some() ? Reading::kMalformed : Reading::kNothing;
  }
  const auto& head = parser_.get();
  request.method = std::string(head.method_string());
  request.target = std::string(head.target());
  for (const auto& field : head) {
    request.fields.emplace(base::lowerCase(std::string(field.name_string())), std::string(field.value()));
  }
  return Reading::kRequest;
}

void RequestReader::readBody(Request& request) {
  std::uint64_t size = parser_.content_length().value_or(0);
  if (size <= kMostRead) {
    inviteBody();
    size = takeBody(request.body);
  }
  if (size > kLargestBody) {
    request.bodyState = Request::Body::kTooLong;
  } else if (!parser_.is_done()) {
    request.bodyState = Request::Body::kIncomplete;
  }
}

// Lets the parser take what it can of what has come, once something has. False when that becomes no request any more.
bool RequestReader::step() {
  if (unread_.empty() && !receive()) return false;
  boost::system::error_code error;
  const std::size_t taken = parser_.put(boost::asio::buffer(unread_), error);
  taken_ += taken;
  unread_.erase(0, taken);
  if (error == http::error::need_more) return receive();
  return !error || error == http::error::need_buffer;
}

bool RequestReader::receive() {
  Piece piece;
  const std::size_t most = std::min(piece.size(), room());
  const std::size_t count = most == 0 ? 0 : connection_.read(piece.data(), most);
  unread_.append(piece.data(), count);
  return count > 0;
}

std::size_t RequestReader::room() const {
  return kLargestHead - std::min(kLargestHead, unread_.size() + (parser_.is_header_done() ? 0 : taken_));
}

void RequestReader::inviteBody() {
  const auto& head = parser_.get();
  const bool invites = boost::beast::iequals(head[http::field::expect], "100-continue") && head.version() >= 11;
  if (!invites || parser_.is_done()) return;
  // Whether the client takes it shows in what it sends then.
  base::ignore(connection_.write("HTTP/1.1 100 Continue\r\n\r\n", base::Deadline(Connection::kWholeMs)));
}

// How much came of the body; `body` gets what is kept of it.
std::uint64_t RequestReader::takeBody(std::string& body) {
  Piece piece;
  std::uint64_t size = 0;
  while (size <= kMostRead && !parser_.is_done()) {
    auto& room = parser_.get().body();
    room.data = piece.data();
    room.size = piece.size();
    if (!step()) break;
    const std::size_t count = piece.size() - room.size;
    size += count;
    if (size <= kLargestBody) body.append(piece.data(), count);
  }
  return size;
}

}  // namespace

Reading readRequest(Connection& connection, Request& request) {
  RequestReader reader(connection);
  const Reading reading = reader.readHead(request);
  if (reading == Reading::kRequest) reader.readBody(request);
  return reading;
}

}  // namespace jxplatform
