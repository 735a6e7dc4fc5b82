// One request to the cloud proxy service and its response.
#pragma once

#include <zoripc.h>

// Why a request has no good response.
constexpr int kRequestNotSent = -1;     // the exchange could not be set up, or the request not be handed over
constexpr int kRequestNoResponse = -2;  // no response in time
constexpr int kRequestNoSuccess = -3;   // a response, whose "proxy"."result" is not "success"; or no delivery

// Sends `message`, an object {"proxy": {"command": ...}}, to the cloud proxy and waits for its response, at most
// `timeoutSeconds` on the monotonic clock. Returns 0 or one of the results above. `message` then holds
// - the response, on 0 and kRequestNoSuccess; where the request could not be delivered that is {"result": "FAIL"};
// - null on kRequestNoResponse, and on kRequestNotSent when it is the sending that failed;
// - still the request on kRequestNotSent when the set-up failed; the next request then tries that again.
// Responses do not tell which request they answer, deliberately: one that comes late is taken as the answer to the
// request that waits then. So only one thread, the main one, makes requests, one at a time. Blocks; does not throw.
[[nodiscard]] int cloudProxyRequest(zoripc::JSObject& message, int timeoutSeconds);

// The notification by which the proxy is told something; also what carries a request.
constexpr const char* kCloudProxyId = "1";
constexpr const char* kCloudProxyNotification = "CloudProxyConf";
