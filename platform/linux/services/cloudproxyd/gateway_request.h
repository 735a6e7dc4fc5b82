// One request to the cloud's gateway.
#pragma once

#include <string>

#include "base/deadline.h"
#include "platform/linux/services/cloudproxyd/gateway.h"

namespace cloudproxyd {

// Why there is no answer; the requester is told these numbers, and they are in the manual.
constexpr int kNoMemory = 1;
constexpr int kNoConnection = 2;
constexpr int kNoHttp = 4;
constexpr int kBrokenOff = 7;
constexpr int kNoTls = 8;
constexpr int kNoAuthorities = 9;
constexpr int kCertificateRefused = 10;
constexpr int kNoAnswerInTime = 13;

struct GatewayAnswer {
  bool answered = false;  // an HTTP answer has come
  int code = 0;           // its status, or one of the numbers above
  std::string reason;     // the text of either; may be empty
};

// Asks the gateway for "/" over HTTPS and returns what it answers, whose body is left alone. Its certificate must be
// valid now, chain to one of the trusted authorities and be for the gateway's host; before that nothing is sent to it.
// Blocks, but no longer than until `deadline` has come or `breakFd` has become readable. The process must ignore
// SIGPIPE. Throws nothing but for want of memory.
[[nodiscard]] GatewayAnswer askGateway(const Gateway& gateway, const base::Deadline& deadline, int breakFd);

}  // namespace cloudproxyd
