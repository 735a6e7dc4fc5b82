// Reading of a message's head.
#include <algorithm>
#include <array>
#include <iterator>

#include "http/base64.h"
#include "http/header_text.h"
#include "http/http_proto.h"
#include "http/no_throw.h"
#include "http/number_text.h"
#include "http/request_target.h"

namespace zorhtml {

namespace {

constexpr int kOk = 200;
constexpr int kBadRequest = 400;
constexpr int kTimeout = 408;
constexpr int kGone = 410;

// The words of request lines, in the order of their codes. Letter case matters: an unknown word is a 400, never a 501.
constexpr const char* kMethodWords[] = {"OPTIONS", "GET", "HEAD", "POST", "PUT", "DELETE", "TRACE", "CONNECT", "PATCH"};

HttpMethod methodOf(const std::string& word) {
  const auto* found = std::find(std::begin(kMethodWords), std::end(kMethodWords), word);
  if (found != std::end(kMethodWords)) {
    return static_cast<HttpMethod>(static_cast<int>(HttpMethod::Options) +
                                   static_cast<int>(found - std::begin(kMethodWords)));
  }
  if (word == "HTTP/1.0" || word == "HTTP/1.1") return HttpMethod::Response;
  return HttpMethod::Unknown;
}

// Leaves both alone when `field` holds no credentials of the scheme Basic.
void splitCredentials(const std::string& field, std::string& user, std::string& password) {
  const std::vector<std::string> words = splitWords(field);
  if (words.size() < 2 || toLowerCopy(words[0]) != "basic") return;
  std::vector<char> decoded(words[1].size() + 1);
  const int length = base64Decode(words[1].data(), static_cast<int>(words[1].size()), decoded.data(),
                                  static_cast<int>(decoded.size()));
  if (length <= 0) return;
  const auto end = decoded.begin() + length;
  const auto colon = std::find(decoded.begin(), end, ':');
  if (colon == end) return;
  user.assign(decoded.begin(), colon);
  password.assign(colon + 1, end);
}

bool isContinuation(const std::string& line) { return !line.empty() && (line.front() == ' ' || line.front() == '\t'); }

}  // namespace

HttpProto::LineResult HttpProto::readLine(std::string& line) {
  if (connection == nullptr) return LineResult::kNoConnection;
  line.clear();
  std::array<char, 128> piece;
  std::size_t count = 0;
  for (;;) {
    char& c = piece[count];
    if (!connection->readExact(&c, 1, timeout)) {
      line.append(piece.data(), count);
      return connection->closed() ? LineResult::kClosed : LineResult::kTimedOut;
    }
    if (c == '\n') break;
    // Dropped wherever it stands, deliberately: a stray one inside a value vanishes.
    if (c == '\r' || ++count < piece.size()) continue;
    line.append(piece.data(), count);
    count = 0;
  }
  line.append(piece.data(), count);
  return LineResult::kComplete;
}

int HttpProto::readHeader(HttpMethod& method, std::string& path, bool& keepOpen) {
  keepOpen = true;
  bodyRemaining = 0;
  chunkRemaining = 0;
  method = HttpMethod::Unknown;
  path.clear();
  if (connection == nullptr) return kGone;
  headers.clear();
  return noThrow([&] { return readHead(method, path, keepOpen); },
                 [&] {
                   // What else has arrived of it would be taken for the next message.
                   dropConnection();
                   keepOpen = false;
                   method = HttpMethod::Unknown;
                   path.clear();
                   return kBadRequest;
                 });
}

int HttpProto::readHead(HttpMethod& method, std::string& path, bool& keepOpen) {
  std::string line;
  const LineResult result = readLine(line);
  if (result != LineResult::kComplete) {
    keepOpen = false;
    return result == LineResult::kTimedOut ? kTimeout : kBadRequest;
  }
  int status = kBadRequest;
  if (!parseStartLine(line, method, path, keepOpen, status)) return kBadRequest;
  return readFields(status, keepOpen);
}

// False for a line that is neither a request's nor a response's; `status` is then left alone.
bool HttpProto::parseStartLine(const std::string& line, HttpMethod& method, std::string& path, bool& keepOpen,
                               int& status) {
  const std::vector<std::string> words = splitWords(line);
  if (words.size() < 2) return false;
  method = methodOf(words[0]);
  if (method == HttpMethod::Unknown) return false;
  if (method == HttpMethod::Response) {
    headers["http-version"] = words[0];
    // A status that is no number makes a malformed message.
    status = scanDecimal(words[1]).value_or(kBadRequest);
    return true;
  }
  if (words.size() > 3) {
    keepOpen = false;
    return false;
  }
  path = normaliseTarget(words[1]);
  // Any third word is taken as the version and goes back in the reply.
  headers["http-version"] = words.size() == 3 ? words[2] : "HTTP/1.0";
  status = kOk;
  return true;
}

int HttpProto::readFields(int status, bool& keepOpen) {
  std::string line;
  std::string pending;  // held back, because the next line may continue it
  for (;;) {
    const LineResult result = readLine(line);
    if (result != LineResult::kComplete) {
      keepOpen = false;
      return result == LineResult::kTimedOut ? kTimeout : kBadRequest;
    }
    if (isContinuation(line)) {
      pending += line;
      continue;
    }
    storeField(pending);
    if (line.empty()) break;
    pending = line;
  }
  decideFraming();
  return status;
}

// The key is not trimmed, and the last of repeated fields wins; a line without ":" is dropped.
void HttpProto::storeField(const std::string& line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string::npos) return;
  headers[toLowerCopy(line.substr(0, colon))] = trimSpace(line.substr(colon + 1));
}

// Both look-ups insert, so that the fields exist afterwards. A negative length selects chunked reading, deliberately.
void HttpProto::decideFraming() {
  if (toLowerCopy(headers["transfer-encoding"]).find("chunked") != std::string::npos) {
    bodyRemaining = -1;
    return;
  }
  bodyRemaining = scanDecimal(headers["content-length"]).value_or(0);
}

int HttpProto::readRequest(HttpMethod& method, std::string& path) {
  bool keepOpen = false;
  const int status = readHeader(method, path, keepOpen);
  if (method == HttpMethod::Response) return kBadRequest;
  clientMode = 0;
  return status;
}

int HttpProto::readResponse(bool& keepOpen) {
  HttpMethod method = HttpMethod::Unknown;
  std::string path;
  const int status = readHeader(method, path, keepOpen);
  return method == HttpMethod::Response ? status : kBadRequest;
}

void HttpProto::getBasicAuth(std::string& user, std::string& password) {
  user.clear();
  password.clear();
  const auto field = headers.find("authorization");
  if (field == headers.end()) return;
  noThrow([&] { splitCredentials(field->second, user, password); },
          [&] {
            user.clear();
            password.clear();
          });
}

}  // namespace zorhtml
