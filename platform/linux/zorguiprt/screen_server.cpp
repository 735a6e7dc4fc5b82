#include "platform/linux/zorguiprt/screen_server.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>
#include <variant>

#include "base/host_port.h"
#include "base/text.h"
#include "platform/linux/zorguiprt/screen_json.h"
#include "platform/linux/zorguiprt/shell_document.h"

namespace jxplatform {
namespace {

using HandlerResponse = httplib::Server::HandlerResponse;

constexpr std::size_t kLongestPostPath = 64;               // longer than any of ours
constexpr std::size_t kMostRead = std::size_t{16} << 20U;  // bytes of a body that are read to be thrown away
constexpr std::chrono::milliseconds kStopTimeout{2000};

constexpr const char* kScreenPath = "/api/screen";
constexpr const char* kPagesPrefix = "/pages/";

void refuse(httplib::Response& response, int status, const std::string& reason) {
  response.status = status;
  response.set_content(reason + "\n", "text/plain; charset=utf-8");
}

void refuseMethod(httplib::Response& response, const char* allowed) {
  response.set_header("Allow", allowed);
  refuse(response, 405, std::string("only ") + allowed + " is answered here");
}

// The ID of "/api/screen/ID/result".
bool isResultPath(const std::string& path, std::string& id) {
  const std::string start = std::string(kScreenPath) + "/";
  const std::string end = "/result";
  if (path.size() < start.size() + end.size() || !base::beginsWith(path, start)) return false;
  if (!base::endsWith(path, end)) return false;
  id = path.substr(start.size(), path.size() - start.size() - end.size());
  return id.find('/') == std::string::npos;
}

// A parameter of the query that is a number; `number` stays as it is where it is not given. False when it is malformed.
bool readNumber(const httplib::Request& request, const std::string& name, std::uint64_t& number) {
  const std::size_t count = request.get_param_value_count(name);
  if (count == 0) return true;
  const auto value = parseNumber(request.get_param_value(name));
  if (count > 1 || !value) return false;
  number = *value;
  return true;
}

// A URL that names one document may begin with more slashes than one: clients append a path to the screen's URL.
std::string withoutDoubledSlash(const std::string& path) {
  const std::size_t begin = path.find_first_not_of('/');
  return begin == std::string::npos ? "/" : path.substr(begin - 1);
}

// Reads the whole body, so that the answer is not lost to a connection reset; keeps what a result may have.
bool readBody(const httplib::ContentReader& reader, std::string& body, bool& tooLong) {
  std::size_t size = 0;
  return reader([&](const char* data, std::size_t count) {
    size += count;
    tooLong = size > ScreenServer::kLargestBody;
    if (!tooLong) body.append(data, count);
    return size <= kMostRead;
  });
}

}  // namespace

ScreenServer::ScreenServer(Screen& screen, PageFiles files, const std::string& title)
    : screen_(screen), files_(std::move(files)), document_(shellDocument(title)) {
  configure();
}

ScreenServer::~ScreenServer() { stop(); }

void ScreenServer::configure() {
  // The library's default would let a second program share the port unnoticed.
  server_.set_socket_options([](socket_t socket) {
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  });
  server_.set_payload_max_length(kMostRead);
  server_.set_tcp_nodelay(true);
  server_.set_default_headers({{"Content-Security-Policy", kContentSecurityPolicy},
                               {"X-Content-Type-Options", "nosniff"},
                               {"Referrer-Policy", "no-referrer"},
                               {"Cross-Origin-Resource-Policy", "same-origin"},
                               {"Cache-Control", "no-store"}});
  server_.set_pre_routing_handler(
      [this](const Request& request, Response& response) { return route(request, response); });
  server_.Post(".*", [this](const Request& request, Response& response, const httplib::ContentReader& reader) {
    answerPost(request, response, reader);
  });
  server_.set_exception_handler([](const Request&, Response& response, const std::exception_ptr&) {
    refuse(response, 500, "the request could not be answered, probably for want of memory");
  });
  const httplib::Server::HandlerWithResponse explain = [](const Request&, Response& response) {
    if (response.body.empty()) refuse(response, response.status, "the request is malformed");
    return HandlerResponse::Handled;
  };
  server_.set_error_handler(explain);
}

std::string ScreenServer::bind(ServerAddress& address) {
  errno = 0;
  if (address.port == 0) {
    address.port = server_.bind_to_any_port(address.host);
    if (address.port > 0) return {};
  } else if (server_.bind_to_port(address.host, address.port)) {
    return {};
  }
  return errno != 0 ? std::strerror(errno) : "no such address";
}

std::string ScreenServer::start(ServerAddress address) {
  std::string reason = bind(address);
  if (!reason.empty()) return reason;
  server_.raiseBacklog();
  names_ = std::make_unique<OwnNames>(address);
  if (address.host == "0.0.0.0") address.host = "127.0.0.1";
  if (address.host == "::") address.host = "::1";
  url_ = "http://" + base::hostAndPort(address.host, address.port) + "/";
  acceptor_ = std::thread([this] { server_.serve(connections_); });
  return {};
}

void ScreenServer::stop() {
  if (!acceptor_.joinable()) return;
  if (!connections_.finish(kStopTimeout)) server_.breakOff();
  server_.end();
  acceptor_.join();
  connections_.join();
}

bool ScreenServer::isOwn(const Request& request, Response& response) const {
  if (request.get_header_value_count("Host") != 1 || !names_->isOwnHost(request.get_header_value("Host"))) {
    refuse(response, 403, "the request's Host is not a name of this screen");
    return false;
  }
  const std::size_t origins = request.get_header_value_count("Origin");
  if (origins > 1 || (origins == 1 && !names_->isOwnOrigin(request.get_header_value("Origin")))) {
    refuse(response, 403, "the request's Origin is not this screen");
    return false;
  }
  return true;
}

// Answers everything here but the POST requests of a plausible path, whose body has to be read first: the server's own
// routes are regular expressions, whose matching of a long path would need much of the stack.
HandlerResponse ScreenServer::route(const Request& request, Response& response) {
  // Ranges make no sense of anything here, and many of one file would make a huge answer of it.
  const_cast<Request&>(request).ranges.clear();
  if (request.method == "POST" && request.path.size() <= kLongestPostPath) return HandlerResponse::Unhandled;
  if (isOwn(request, response)) answerGet(request, response);
  return HandlerResponse::Handled;
}

void ScreenServer::answerGet(const Request& request, Response& response) {
  const std::string path = withoutDoubledSlash(request.path);
  const bool reads = request.method == "GET" || request.method == "HEAD";
  std::string id;
  if (isResultPath(path, id)) return refuseMethod(response, "POST");
  const bool isFile = base::beginsWith(path, kPagesPrefix);
  if (path != "/" && path != kScreenPath && !isFile) return refuse(response, 404, "there is nothing at this path");
  if (!reads) return refuseMethod(response, "GET, HEAD");
  if (path == kScreenPath) return answerScreen(request, response);
  if (isFile) return answerFile(path.substr(std::strlen(kPagesPrefix)), response);
  response.status = 200;
  response.set_content(document_, "text/html; charset=utf-8");
}

void ScreenServer::answerScreen(const Request& request, Response& response) {
  std::uint64_t after = 0;
  std::uint64_t seconds = 0;
  if (!readNumber(request, "after", after)) return refuse(response, 400, "\"after\" is not the number of a page");
  if (!readNumber(request, "wait", seconds)) return refuse(response, 400, "\"wait\" is not a number of seconds");
  const auto wait = std::chrono::seconds(std::min<std::uint64_t>(seconds, kLongestWaitSeconds));
  const Screen::Text screen = screen_.newest(after, wait);
  if (screen == nullptr) {
    response.status = 204;
    return;
  }
  response.status = 200;
  response.set_content(*screen, "application/json");
}

void ScreenServer::answerFile(const std::string& path, Response& response) const {
  std::string content;
  switch (files_.read(path, content)) {
    case PageFiles::Outcome::kMissing:
      return refuse(response, 404, "there is no such file");
    case PageFiles::Outcome::kUnreadable:
      return refuse(response, 500, "the file cannot be read");
    case PageFiles::Outcome::kRead:
      break;
  }
  response.status = 200;
  response.set_content(content, contentType(path));
}

void ScreenServer::answerPost(const Request& request, Response& response, const httplib::ContentReader& reader) {
  std::string body;
  bool tooLong = request.get_header_value<std::uint64_t>("Content-Length") > kMostRead;
  const bool isForm = request.is_multipart_form_data();  // which the library reads in another way
  const bool complete = !tooLong && !isForm && readBody(reader, body, tooLong);
  if (!isOwn(request, response)) return;
  std::string id;
  const std::string path = withoutDoubledSlash(request.path);
  if (!isResultPath(path, id)) {
    if (path == "/" || path == kScreenPath || base::beginsWith(path, kPagesPrefix))
      return refuseMethod(response, "GET, HEAD");
    return refuse(response, 404, "there is nothing at this path");
  }
  if (tooLong) return refuse(response, 400, "the body is longer than " + std::to_string(kLargestBody) + " bytes");
  if (isForm) return refuse(response, 400, "a result is JSON, not a form");
  if (!complete) return refuse(response, 400, "the body is incomplete");
  takeResult(id, body, response);
}

void ScreenServer::takeResult(const std::string& idText, const std::string& body, Response& response) {
  const auto id = parseNumber(idText);
  if (!id) return refuse(response, 400, "\"" + idText + "\" is not the number of a page");
  auto result = parseResult(body);
  if (const auto* refusal = std::get_if<Refusal>(&result)) return refuse(response, 400, refusal->reason);
  if (!screen_.post(*id, std::move(std::get<PageResult>(result)))) {
    return refuse(response, 409, "the page takes no result any more");
  }
  response.status = 204;
}

}  // namespace jxplatform
