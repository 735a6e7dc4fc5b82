// The web server behind the screen.
#pragma once

#include <memory>
#include <string>
#include <thread>

#include "platform/linux/zorguiprt/connection_threads.h"
#include "platform/linux/zorguiprt/http_server.h"
#include "platform/linux/zorguiprt/own_names.h"
#include "platform/linux/zorguiprt/page_files.h"
#include "platform/linux/zorguiprt/screen.h"
#include "platform/linux/zorguiprt/screen_routes.h"

namespace jxplatform {

// Serves the requests that docs/screen.md lists, each connection on a thread of its own.
class ScreenServer {
 public:
  // `screen` outlives this object. `title` names the document.
  ScreenServer(Screen& screen, PageFiles files, const std::string& title);
  ~ScreenServer();
  ScreenServer(const ScreenServer&) = delete;
  ScreenServer& operator=(const ScreenServer&) = delete;

  // Begins to serve at `address`. Called once. Throws Failure.
  void start(ServerAddress address);

  // "http://ADDRESS:PORT/", an address that a browser on this machine can reach.
  const std::string& url() const { return url_; }

  // Ends the server. The screen was closed before: nobody waits for a page any more. Connections have two seconds to
  // come to their end, and are broken off then.
  void stop();

 private:
  ScreenRoutes routes_;
  std::unique_ptr<OwnNames> names_;
  std::string url_;
  ConnectionThreads connections_;
  HttpServer server_;
  std::thread acceptor_;
};

}  // namespace jxplatform
