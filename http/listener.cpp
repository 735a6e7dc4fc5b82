#include "http/listener.h"

#include <poll.h>

#include <array>
#include <cstdio>
#include <memory>

#include "base/ignore.h"
#include "http/no_throw.h"
#include "http/number_text.h"
#include "http/thread.h"

namespace zorhtml {

namespace {

constexpr int kAnyPort = -1;
constexpr int kPassMs = 1000;

enum class Wait { kQuiet, kConnection, kOther };

void storeChosenPort(ServerSettings& settings, const zoripc::TCP& endpoint) {
  const std::string address = endpoint.localAddress();
  const std::size_t colon = address.rfind(':');
  if (colon != std::string::npos) settings.port = scanDecimal(address.substr(colon + 1)).value_or(0);
}

// Null, after a message, when the port cannot be opened, for want of memory too.
std::unique_ptr<zoripc::TCP> openEndpoint(ServerSettings& settings) {
  try {
    auto endpoint = std::make_unique<zoripc::TCP>();
    const int port = settings.port == kAnyPort ? 0 : settings.port;
    if (endpoint->listen(static_cast<unsigned short>(port), nullptr) != 0) {
      if (settings.port == kAnyPort) storeChosenPort(settings, *endpoint);
      return endpoint;
    }
    // Not released, deliberately: a failed endpoint is left to the end of the process.
    base::ignore(endpoint.release());
  } catch (...) {
    passOnThreadExit();
  }
  std::fprintf(stderr, "Failed to listen on port %d\n", settings.port);
  return nullptr;
}

// Waits a pass for a connection. A wait that failed or that a signal ended is no quiet one: the next begins at once. An
// event without POLLIN is none to act on.
Wait waitForConnection(const zoripc::TCP* endpoint) {
  std::array<pollfd, 2> set{};
  set[0].fd = endpoint != nullptr ? endpoint->getFD() : -1;
  set[0].events = POLLIN;
  set[1].fd = -1;  // the place of the second endpoint, which is never opened
  set[1].events = POLLIN;
  const int ready = poll(set.data(), endpoint != nullptr ? 1 : 0, kPassMs);
  if (ready == 0) return Wait::kQuiet;
  return ready > 0 && (set[0].revents & POLLIN) != 0 ? Wait::kConnection : Wait::kOther;
}

// A connection that there is no memory or no thread for is dropped, and nothing else.
void acceptConnection(zoripc::TCP& endpoint, const HttpThread& prototype, CopyServer copy) {
  try {
    std::unique_ptr<zoripc::IPC> stream(endpoint.accept(-1));
    if (!stream) return;
    std::unique_ptr<HttpThread> server(copy(prototype));
    if (!server) return;
    server->setConnection(stream.release());
    const ThreadControl control(server.release(), true);
  } catch (...) {
    passOnThreadExit();
  }
}

}  // namespace

bool serve(ServerSettings& settings, const HttpThread& prototype, CopyServer copy) {
  std::unique_ptr<zoripc::TCP> endpoint;
  if (settings.port != 0) {
    endpoint = openEndpoint(settings);
    if (!endpoint) return false;
  } else if (settings.auxEndpoint == 0) {
    return false;
  }
  for (;;) {
    const Wait wait = waitForConnection(endpoint.get());
    // Looked at after a quiet second alone, deliberately: while connections keep coming, a stop waits.
    if (wait == Wait::kQuiet && settings.stop.load(std::memory_order_relaxed)) return true;
    if (wait == Wait::kConnection && endpoint) acceptConnection(*endpoint, prototype, copy);
  }
}

}  // namespace zorhtml
