#include "platform/linux/services/cloudproxyd/gateway_check.h"

#include <httplib.h>
#include <openssl/crypto.h>

#include <chrono>
#include <condition_variable>
#include <exception>
#include <list>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace cloudproxyd {

namespace {

using httplib::Error;

std::string textOf(Error error) {
  switch (error) {
    case Error::Connection:
      return "cannot connect";
    case Error::ConnectionTimeout:
      return "no answer in time";
    case Error::Read:
      return "no HTTP answer";
    case Error::SSLConnection:
      return "no TLS connection";
    case Error::SSLLoadingCerts:
      return "the trusted authorities cannot be read";
    default:
      return httplib::to_string(error);
  }
}

// `result`: what the verification of the certificate itself came to, apart from the name in it.
std::string certificateProblem(long result) {
  if (result == X509_V_OK) return "the certificate is for another host";
  return std::string("the certificate is not trusted: ") + X509_verify_cert_error_string(result);
}

// A request whose answer's body nobody wants: the status line and headers are the answer.
GatewayAnswer ask(httplib::SSLClient& client) {
  GatewayAnswer answer;
  const auto takeHead = [&answer](const httplib::Response& response) {
    answer = {true, response.status, response.reason};
    return false;
  };
  const auto takeNothing = [](const char* /*data*/, std::size_t /*size*/) { return false; };
  const httplib::Result result = client.Get("/", takeHead, takeNothing);
  // The library reports no head where there can be no body.
  if (result) return {true, result->status, result->reason};
  if (answer.answered) return answer;
  const bool isRefused = result.error() == Error::SSLServerVerification;
  return {false, static_cast<int>(result.error()),
          isRefused ? certificateProblem(client.get_openssl_verify_result()) : textOf(result.error())};
}

GatewayAnswer timeout() {
  return {false, static_cast<int>(Error::ConnectionTimeout), textOf(Error::ConnectionTimeout)};
}

// One request, which its own thread and the one that waits for it share.
struct Attempt {
  Attempt(const Gateway& gateway, std::chrono::milliseconds limit) : client(gateway.host, gateway.port) {
    client.enable_server_certificate_verification(true);
    if (!gateway.caFile.empty()) client.set_ca_cert_path(gateway.caFile);
    client.set_connection_timeout(limit);
    client.set_read_timeout(limit);
    client.set_write_timeout(limit);
    client.set_follow_location(false);
  }

  void run() {
    GatewayAnswer result;
    try {
      result = ask(client);
    } catch (const std::exception& error) {
      result.reason = error.what();
    }
    conclude(std::move(result));
  }

  void conclude(GatewayAnswer result) {
    const std::lock_guard<std::mutex> hold(lock);
    answer = std::move(result);
    changed.notify_all();
  }

  GatewayAnswer wait(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> hold(lock);
    if (changed.wait_for(hold, limit, [this] { return answer.has_value(); })) return *answer;
    return timeout();
  }

  httplib::SSLClient client;
  std::mutex lock;
  std::condition_variable changed;
  std::optional<GatewayAnswer> answer;
};

}  // namespace

// What the checks share; lives as long as any of their threads.
struct GatewayChecker::Checks : std::enable_shared_from_this<Checks> {
  using Attempts = std::list<std::shared_ptr<Attempt>>;

  // Runs `work` on a thread that is counted until nothing of it is left: once the count is 0 the process may end, and
  // with it what TLS stands on.
  template <class Work>
  void startThread(Work work) {
    std::thread([self = shared_from_this(), work = std::move(work)]() mutable {
      {
        const Work held = std::move(work);
        held();
      }
      OPENSSL_thread_stop();
      const std::lock_guard<std::mutex> hold(self->lock);
      --self->threads;
      self->changed.notify_all();
    }).detach();
    ++threads;
  }

  // On a thread of its own: waits for the attempt, and reports it.
  void conclude(Attempts::iterator place, const Done& done) {
    const std::shared_ptr<Attempt> attempt = *place;
    try {
      done(attempt->wait(limit));
    } catch (const std::exception&) {
      // A report that there is no memory for is lost; the requester's time-out tells.
    }
    attempt->client.stop();
    const std::lock_guard<std::mutex> hold(lock);
    attempts.erase(place);
  }

  Gateway gateway;
  std::chrono::milliseconds limit{0};
  std::mutex lock;  // of everything below
  std::condition_variable changed;
  Attempts attempts;
  int threads = 0;
  bool finished = false;
};

GatewayChecker::GatewayChecker(Gateway gateway, int timeoutMs) : checks_(std::make_shared<Checks>()) {
  checks_->gateway = std::move(gateway);
  checks_->limit = std::chrono::milliseconds(timeoutMs);
}

GatewayChecker::~GatewayChecker() { finish(0); }

bool GatewayChecker::start(Done done) {
  Checks& checks = *checks_;
  const std::lock_guard<std::mutex> hold(checks.lock);
  // Each check has two threads, of which the one with the request may outlast it.
  if (checks.finished || checks.threads >= 2 * kMaxChecks) return false;
  auto place = checks.attempts.end();
  try {
    const auto attempt = std::make_shared<Attempt>(checks.gateway, checks.limit);
    place = checks.attempts.insert(place, attempt);
    checks.startThread([&checks, place, done = std::move(done)] { checks.conclude(place, done); });
  } catch (const std::exception&) {
    if (place != checks.attempts.end()) checks.attempts.erase(place);
    return false;
  }
  try {
    checks.startThread([attempt = *place] { attempt->run(); });
  } catch (const std::exception& error) {
    (*place)->conclude({false, 0, error.what()});
  }
  return true;
}

bool GatewayChecker::finish(int timeoutMs) {
  std::unique_lock<std::mutex> hold(checks_->lock);
  checks_->finished = true;
  for (const auto& attempt : checks_->attempts) attempt->client.stop();
  return checks_->changed.wait_for(hold, std::chrono::milliseconds(timeoutMs),
                                   [this] { return checks_->threads == 0; });
}

}  // namespace cloudproxyd
