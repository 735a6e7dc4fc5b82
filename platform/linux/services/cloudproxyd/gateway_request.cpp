#include "platform/linux/services/cloudproxyd/gateway_request.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>

#include <array>
#include <cerrno>
#include <memory>
#include <string_view>

#include "base/descriptor.h"
#include "base/host_port.h"
#include "base/regular_file.h"
#include "platform/linux/openssl/owners.h"
#include "platform/linux/openssl/trusted_certificates.h"
#include "platform/linux/services/cloudproxyd/answer_head.h"
#include "platform/linux/support/connect.h"
#include "platform/linux/support/failure.h"

namespace cloudproxyd {

namespace {

using jxplatform::Freer;
using Context = std::unique_ptr<SSL_CTX, Freer<SSL_CTX_free>>;
using Session = std::unique_ptr<SSL, Freer<SSL_free>>;

constexpr std::size_t kMaxAuthoritiesBytes = std::size_t{4} * 1024 * 1024;
constexpr int kHttpsPort = 443;

// A failure with its number; thrown and caught in this file alone.
class NoAnswer : public jxplatform::Failure {
 public:
  NoAnswer(int code, const std::string& reason) : Failure(reason), code_(code) {}
  [[nodiscard]] int code() const { return code_; }

 private:
  int code_;
};

NoAnswer noAnswerFor(int error) {
  if (error == ETIMEDOUT) return {kNoAnswerInTime, "no answer in time"};
  if (error == ECANCELED) return {kBrokenOff, "the check was broken off"};
  return {kNoConnection, "cannot connect"};
}

void require(bool done, int code, const char* reason) {
  if (!done) throw NoAnswer(code, reason);
}

bool loadAuthorities(SSL_CTX* context, const std::string& file) {
  if (file.empty()) return SSL_CTX_set_default_verify_paths(context) == 1;
  std::string pem;
  return base::readRegularFile(file, kMaxAuthoritiesBytes, pem) &&
         jxplatform::trustCertificates(SSL_CTX_get_cert_store(context), pem) > 0;
}

Context makeContext(const std::string& caFile) {
  Context context(SSL_CTX_new(TLS_client_method()));
  require(context && SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) == 1, kNoTls, "no TLS connection");
  require(loadAuthorities(context.get(), caFile), kNoAuthorities, "the trusted authorities cannot be read");
  SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
  return context;
}

// A session over `socket` with whoever proves to be `host`.
Session makeSession(SSL_CTX* context, int socket, const std::string& host) {
  Session session(SSL_new(context));
  const bool isAddress = base::isIpv4(host) || base::isIpv6(host);
  const bool isMade = session && SSL_set_fd(session.get(), socket) == 1 &&
                      (isAddress ? X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(session.get()), host.c_str()) == 1
                                 : SSL_set1_host(session.get(), host.c_str()) == 1 &&
                                       SSL_set_tlsext_host_name(session.get(), host.c_str()) == 1);
  require(isMade, kNoTls, "no TLS connection");
  return session;
}

NoAnswer handshakeFailure(const SSL* session) {
  const long result = SSL_get_verify_result(session);
  if (result == X509_V_OK) return {kNoTls, "no TLS connection"};
  if (result == X509_V_ERR_HOSTNAME_MISMATCH || result == X509_V_ERR_IP_ADDRESS_MISMATCH) {
    return {kCertificateRefused, "the certificate is for another host"};
  }
  return {kCertificateRefused, std::string("the certificate is not trusted: ") + X509_verify_cert_error_string(result)};
}

std::string requestTo(const Gateway& gateway) {
  const bool isUsualPort = gateway.port == kHttpsPort;
  const std::string withPort = base::hostAndPort(gateway.host, gateway.port);
  const std::string host = isUsualPort ? withPort.substr(0, withPort.rfind(':')) : withPort;
  return "GET / HTTP/1.1\r\nHost: " + host +
         "\r\nUser-Agent: cloudproxyd/" JX_VERSION "\r\nAccept: */*\r\nConnection: close\r\n\r\n";
}

class Request {
 public:
  Request(const base::Deadline& deadline, int breakFd) : deadline_(deadline), breakFd_(breakFd) {}

  GatewayAnswer run(const Gateway& gateway) {
    const Context context = makeContext(gateway.caFile);
    const base::Descriptor socket =
        jxplatform::connectTo(gateway.host, static_cast<unsigned short>(gateway.port), deadline_, breakFd_);
    if (!socket) throw noAnswerFor(errno);
    const Session session = makeSession(context.get(), socket.get(), gateway.host);
    if (!complete(session.get(), SSL_connect)) throw handshakeFailure(session.get());
    send(session.get(), requestTo(gateway));
    return receive(session.get());
  }

 private:
  // Repeats `operation` until it is done or has failed, and waits where it must.
  template <class Operation>
  bool complete(SSL* session, Operation operation) const {
    for (;;) {
      ERR_clear_error();
      const int result = operation(session);
      if (result > 0) return true;
      const int wanted = SSL_get_error(session, result);
      if (wanted != SSL_ERROR_WANT_READ && wanted != SSL_ERROR_WANT_WRITE) return false;
      const short events = wanted == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT;
      const int error = jxplatform::waitReady(SSL_get_fd(session), events, deadline_, breakFd_);
      if (error != 0) throw noAnswerFor(error);
    }
  }

  void send(SSL* session, const std::string& request) const {
    const auto write = [&](SSL* to) { return SSL_write(to, request.data(), static_cast<int>(request.size())); };
    require(complete(session, write), kNoHttp, "no HTTP answer");
  }

  GatewayAnswer receive(SSL* session) const {
    AnswerHead head;
    for (;;) {
      std::array<char, 4096> block{};
      std::size_t size = 0;
      const auto read = [&](SSL* from) { return SSL_read_ex(from, block.data(), block.size(), &size); };
      require(complete(session, read), kNoHttp, "no HTTP answer");
      const AnswerHead::State state = head.take({block.data(), size});
      require(state != AnswerHead::State::kMalformed, kNoHttp, "no HTTP answer");
      if (state == AnswerHead::State::kComplete) return {true, head.status(), head.reason()};
    }
  }

  const base::Deadline& deadline_;
  int breakFd_;
};

}  // namespace

GatewayAnswer askGateway(const Gateway& gateway, const base::Deadline& deadline, int breakFd) {
  try {
    return Request(deadline, breakFd).run(gateway);
  } catch (const NoAnswer& failure) {
    return {false, failure.code(), failure.what()};
  }
}

}  // namespace cloudproxyd
