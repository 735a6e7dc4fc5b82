#include "platform/linux/zorguiprt/screen_server.h"

#include <chrono>
#include <utility>

#include "base/host_port.h"

namespace jxplatform {
namespace {

constexpr std::chrono::milliseconds kStopTimeout{2000};

}  // namespace

ScreenServer::ScreenServer(Screen& screen, PageFiles files, const std::string& title)
    : routes_(screen, std::move(files), title),
      server_([this](const Request& request) { return routes_.answer(request, *names_); }) {}

ScreenServer::~ScreenServer() { stop(); }

void ScreenServer::start(ServerAddress address) {
  address.port = server_.listen(address);
  names_ = std::make_unique<OwnNames>(address);
  if (address.host == "0.0.0.0") address.host = "127.0.0.1";
  if (address.host == "::") address.host = "::1";
  url_ = "http://" + base::hostAndPort(address.host, address.port) + "/";
  acceptor_ = std::thread([this] { server_.serve(connections_); });
}

void ScreenServer::stop() {
  if (!acceptor_.joinable()) return;
  if (!connections_.finish(kStopTimeout)) server_.breakOff();
  server_.end();
  acceptor_.join();
  connections_.join();
}

}  // namespace jxplatform
