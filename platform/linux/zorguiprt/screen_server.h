// The web server behind the screen.
#pragma once

#include <httplib.h>

#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "platform/linux/zorguiprt/connection_threads.h"
#include "platform/linux/zorguiprt/http_server.h"
#include "platform/linux/zorguiprt/own_names.h"
#include "platform/linux/zorguiprt/page_files.h"
#include "platform/linux/zorguiprt/screen.h"

namespace jxplatform {

// Answers the requests that docs/screen.md lists. One request a connection, with the time limits of ClientStream.
class ScreenServer {
 public:
  static constexpr std::size_t kLargestBody = std::size_t{1} << 20U;  // bytes of a result
  static constexpr int kLongestWaitSeconds = 30;

  // `screen` outlives this object. `title` names the document.
  ScreenServer(Screen& screen, PageFiles files, const std::string& title);
  ~ScreenServer();
  ScreenServer(const ScreenServer&) = delete;
  ScreenServer& operator=(const ScreenServer&) = delete;

  // Begins to serve at `address`. Empty, or the reason why it cannot. Called once.
  std::string start(ServerAddress address);

  // "http://ADDRESS:PORT/", an address that a browser on this machine can reach.
  const std::string& url() const { return url_; }

  // Ends the server. The screen was closed before: nobody waits for a page any more. Connections have two seconds to
  // come to their end, and are broken off then.
  void stop();

 private:
  using Request = httplib::Request;
  using Response = httplib::Response;

  void configure();
  std::string bind(ServerAddress& address);
  bool isOwn(const Request& request, Response& response) const;
  httplib::Server::HandlerResponse route(const Request& request, Response& response);
  void answerGet(const Request& request, Response& response);
  void answerScreen(const Request& request, Response& response);
  void answerFile(const std::string& path, Response& response) const;
  void answerPost(const Request& request, Response& response, const httplib::ContentReader& reader);
  void takeResult(const std::string& id, const std::string& body, Response& response);

  Screen& screen_;
  const PageFiles files_;
  const std::string document_;
  std::unique_ptr<OwnNames> names_;
  std::string url_;
  ConnectionThreads connections_;
  HttpServer server_;
  std::thread acceptor_;
};

}  // namespace jxplatform
