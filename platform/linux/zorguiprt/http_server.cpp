#include "platform/linux/zorguiprt/http_server.h"

#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <thread>
#include <utility>

#include "base/ignore.h"
#include "platform/linux/zorguiprt/answer_writer.h"
#include "platform/linux/zorguiprt/request_reader.h"

namespace jxplatform {
namespace {

constexpr std::chrono::milliseconds kShortagePause{100};

}  // namespace

class HttpServer::Served {
 public:
  Served(HttpServer& server, int socket) : server_(server), socket_(socket) {
    const std::lock_guard<std::mutex> lock(server_.servedMutex_);
    server_.served_.insert(socket_);
    if (server_.brokenOff_) shutdown(socket_, SHUT_RDWR);
  }
  ~Served() {
    const std::lock_guard<std::mutex> lock(server_.servedMutex_);
    server_.served_.erase(socket_);
  }
  Served(const Served&) = delete;
  Served& operator=(const Served&) = delete;

 private:
  HttpServer& server_;
  const int socket_;
};

HttpServer::HttpServer(Handler handler) : handler_(std::move(handler)) {}

int HttpServer::listen(const ServerAddress& address) { return listener_.open(address); }

void HttpServer::serve(ConnectionThreads& threads) {
  while (!listener_.ended()) {
    base::Descriptor accepted = listener_.accept();
    if (accepted) {
      // Whoever answers owns it then, and may have closed it already.
      if (threads.run([this, socket = accepted.get()] { answer(socket); })) base::ignore(accepted.release());
    } else if (!listener_.ended() && errno != EINTR && errno != ECONNABORTED) {
      std::this_thread::sleep_for(kShortagePause);
    }
  }
}

void HttpServer::end() { listener_.end(); }

void HttpServer::breakOff() {
  const std::lock_guard<std::mutex> lock(servedMutex_);
  brokenOff_ = true;
  for (const int socket : served_) shutdown(socket, SHUT_RDWR);
}

void HttpServer::answer(int socket) {
  Connection connection{base::Descriptor(socket)};
  try {
    const Served counted(*this, socket);
    exchange(connection);
  } catch (const std::exception&) {
    // There was no memory for an answer: the client sees the connection end without one.
  }
  connection.closeGently();
}

void HttpServer::exchange(Connection& connection) const {
  Request request;
  switch (readRequest(connection, request)) {
    case Reading::kNothing:
      return;
    case Reading::kMalformed:
      return writeAnswer(connection, refusal(400, "the request is malformed"), AnswerPart::kWhole);
    case Reading::kHeadTooLong:
      return writeAnswer(connection, refusal(431, "the request's head is too long"), AnswerPart::kWhole);
    case Reading::kRequest:
      break;
  }
  writeAnswer(connection, answerTo(request), request.method == "HEAD" ? AnswerPart::kHead : AnswerPart::kWhole);
}

Answer HttpServer::answerTo(const Request& request) const {
  try {
    return handler_(request);
  } catch (const std::exception&) {
    return refusal(500, "the request could not be answered, probably for want of memory");
  }
}

}  // namespace jxplatform
