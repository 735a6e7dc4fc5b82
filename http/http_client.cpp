// The client end: requests and whole exchanges.
#include <array>

#include "http/base64.h"
#include "http/header_text.h"
#include "http/http_proto.h"
#include "http/no_throw.h"
#include "http/url.h"
#include "http/whole_body.h"

namespace zorhtml {

namespace {

constexpr int kOk = 200;
// Doubles as the client's code for a request that could not be sent or an answer that could not be read: deliberate,
// callers test for it.
constexpr int kGone = 410;

// Of the codes from Options on.
constexpr std::array<const char*, 9> kMethodWords = {"OPTIONS ", "GET ",   "HEAD ",    "POST ", "PUT ",
                                                     "DELETE ",  "TRACE ", "CONNECT ", "PATCH "};

// Null for a code that no request has.
const char* methodWord(HttpMethod method) {
  if (method < HttpMethod::Options || method > HttpMethod::Patch) return nullptr;
  return kMethodWords[static_cast<std::size_t>(method) - static_cast<std::size_t>(HttpMethod::Options)];
}

// What the caller's fields say in place of the engine.
struct Overrides {
  std::string host;
  std::string authorization;
};

Overrides overridesOf(const HttpHeaders& extra, const std::string& host) {
  Overrides result{host, ""};
  for (const auto& field : extra) {
    const std::string key = toLowerCopy(field.first);
    if (key == "host") result.host = field.second;
    if (key == "authorization") result.authorization = field.second;
  }
  return result;
}

bool isRequestKey(const std::string& lowerKey) {
  return isFramingKey(lowerKey) || lowerKey == "authorization" || lowerKey == "host";
}

}  // namespace

void HttpProto::setBasicAuth(const std::string& user, const std::string& password) {
  basicAuth.clear();
  noThrow(
      [&] {
        const std::string plain = user + ":" + password;
        std::vector<char> encoded((plain.size() + 2) / 3 * 4 + 1);
        const int length =
            base64Encode(plain.data(), bodyLength(plain.size()), encoded.data(), bodyLength(encoded.size()));
        if (length > 0) basicAuth.assign(encoded.data(), static_cast<std::size_t>(length));
      },
      [] {});
}

bool HttpProto::writeRequestHeader(HttpMethod method, const std::string& url, int contentLength,
                                   const std::string& contentType, bool keepAlive, const HttpHeaders& extra) {
  if (connection == nullptr) return false;
  bodyRemaining = contentLength;
  return noThrow([&] { return sendRequestHead(method, url, contentType, keepAlive, extra); }, [] { return false; });
}

bool HttpProto::sendRequestHead(HttpMethod method, const std::string& url, const std::string& contentType,
                                bool keepAlive, const HttpHeaders& extra) {
  std::string scheme;
  std::string host;
  std::string path;
  std::uint16_t portNumber = 0;
  parseUrl(url, scheme, host, portNumber, path);
  const std::string port = portNumber == 0 ? "" : ":" + std::to_string(portNumber);
  const char* word = methodWord(method);
  if (word == nullptr) return false;
  const std::string target = proxyForm == 0 ? path : scheme + "://" + host + port + path;
  if (!send(word + target + " HTTP/1.1\r\n")) return false;
  const Overrides overrides = overridesOf(extra, host);
  // The URL's port is appended even to a caller's host, deliberately.
  if (!sendField("Host", overrides.host + port)) return false;
  if (!sendRequestFraming(contentType) || !sendCredentials(overrides.authorization)) return false;
  if (!send(keepAlive ? "Connection: Keep-Alive\r\n" : "Connection: close\r\n")) return false;
  for (const auto& field : extra) {
    if (!isRequestKey(toLowerCopy(field.first)) && !sendField(field.first, field.second)) return false;
  }
  if (!send("\r\n")) return false;
  clientMode = 1;
  return true;
}

// A length of 0 is announced too, unlike in a response.
bool HttpProto::sendRequestFraming(const std::string& contentType) {
  const bool sent = bodyRemaining < 0 ? send("Transfer-Encoding: chunked\r\n")
                                      : sendField("Content-Length", std::to_string(bodyRemaining));
  return sent && (contentType.empty() || sendField("Content-Type", contentType));
}

// The two are independent: a caller's field does not suppress the credentials set before.
bool HttpProto::sendCredentials(const std::string& authorization) {
  if (!authorization.empty() && !sendField("Authorization", authorization)) return false;
  return basicAuth.empty() || sendField("Authorization", "Basic " + basicAuth);
}

int HttpProto::request(HttpMethod method, const std::string& url, const std::string& body,
                       const std::string& contentType, std::string& responseBody, std::string& responseType,
                       bool keepAlive) {
  responseBody.clear();
  responseType.clear();
  return noThrow([&] { return exchange(method, url, body, contentType, responseBody, responseType, keepAlive); },
                 [&] {
                   dropConnection();
                   responseBody.clear();
                   responseType.clear();
                   return kGone;
                 });
}

int HttpProto::exchange(HttpMethod method, const std::string& url, const std::string& body,
                        const std::string& contentType, std::string& responseBody, std::string& responseType,
                        bool keepAlive) {
  const int length = bodyLength(body.size());
  if (length < 0 || !writeRequestHeader(method, url, length, contentType, keepAlive, {})) return kGone;
  if (!writeBody(body) || !finishBody()) return kGone;
  bool keepOpen = false;
  const int status = readResponse(keepOpen);
  if ((status < 200 || status > 299) && !keepOpen) return status;
  if (readBody(responseBody) == -1) return status == kOk ? kGone : status;
  responseType = headers["content-type"];
  return status;
}

}  // namespace zorhtml
