#include "platform/linux/zorguiprt/screen_routes.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <optional>
#include <utility>

#include "base/text.h"
#include "platform/linux/support/failure.h"
#include "platform/linux/zorguiprt/request_reader.h"
#include "platform/linux/zorguiprt/screen_json.h"
#include "platform/linux/zorguiprt/shell_document.h"

namespace jxplatform {
namespace {

constexpr const char* kScreenPath = "/api/screen";
constexpr const char* kPagesPrefix = "/pages/";

// A failure with its status.
class Refused : public Failure {
 public:
  Refused(int status, const std::string& reason) : Failure(reason), status_(status) {}
  [[nodiscard]] int status() const { return status_; }

 private:
  int status_;
};

// Throws Refused for a request that is none of this server's own.
void checkNames(const Request& request, const OwnNames& names) {
  const auto host = request.fields.find("host");
  if (request.fields.count("host") != 1 || !names.isOwnHost(host->second)) {
    throw Refused(403, "the request's Host is not a name of this screen");
  }
  const auto origin = request.fields.find("origin");
  const auto origins = request.fields.count("origin");
  if (origins > 1 || (origins == 1 && !names.isOwnOrigin(origin->second))) {
    throw Refused(403, "the request's Origin is not this screen");
  }
}

// The ID of "/api/screen/ID/result"; none for another path.
std::optional<std::string> resultId(const std::string& path) {
  const std::string start = std::string(kScreenPath) + "/";
  const std::string end = "/result";
  if (path.size() < start.size() + end.size() || !base::beginsWith(path, start)) return {};
  if (!base::endsWith(path, end)) return {};
  std::string id = path.substr(start.size(), path.size() - start.size() - end.size());
  if (id.find('/') != std::string::npos) return {};
  return id;
}

// The parameter `name` of the query; 0 where it is not given. Throws Refused where it is not `what`.
std::uint64_t numberIn(const RequestTarget& target, const std::string& name, const std::string& what) {
  const auto count = target.parameters.count(name);
  if (count == 0) return 0;
  const auto value = parseNumber(target.parameters.find(name)->second);
  if (count > 1 || !value) throw Refused(400, '"' + name + "\" is not " + what);
  return *value;
}

bool isForm(const Request& request) {
  const auto type = request.fields.find("content-type");
  return type != request.fields.end() && base::beginsWith(type->second, "multipart/form-data");
}

// Throws Refused for a body that cannot be a result.
void checkBody(const Request& request) {
  if (request.bodyState == Request::Body::kTooLong) {
    throw Refused(400, "the body is longer than " + std::to_string(kLargestBody) + " bytes");
  }
  if (isForm(request)) throw Refused(400, "a result is JSON, not a form");
  if (request.bodyState == Request::Body::kIncomplete) throw Refused(400, "the body is incomplete");
}

PageResult resultIn(const Request& request) {
  try {
    return parseResult(request.body);
  } catch (const Failure& failure) {
    throw Refused(400, failure.what());
  }
}

}  // namespace

ScreenRoutes::ScreenRoutes(Screen& screen, PageFiles files, const std::string& title)
    : screen_(screen), files_(std::move(files)), document_(shellDocument(title)) {}

Answer ScreenRoutes::answer(const Request& request, const OwnNames& names) {
  try {
    checkNames(request, names);
    return answerOwn(request);
  } catch (const Refused& refused) {
    return refusal(refused.status(), refused.what());
  }
}

Answer ScreenRoutes::answerOwn(const Request& request) {
  const RequestTarget target = parseTarget(request.target);
  const std::string& path = target.path;
  if (const auto id = resultId(path))
    return request.method == "POST" ? takeResult(*id, request) : methodRefusal("POST");
  if (path != "/" && path != kScreenPath && !base::beginsWith(path, kPagesPrefix)) {
    throw Refused(404, "there is nothing at this path");
  }
  if (request.method != "GET" && request.method != "HEAD") return methodRefusal("GET, HEAD");
  return answerRead(target);
}

Answer ScreenRoutes::answerRead(const RequestTarget& target) {
  if (target.path == "/") return {200, "text/html; charset=utf-8", document_, ""};
  if (target.path == kScreenPath) return answerScreen(target);
  return answerFile(target.path.substr(std::strlen(kPagesPrefix)));
}

Answer ScreenRoutes::answerScreen(const RequestTarget& target) {
  const std::uint64_t after = numberIn(target, "after", "the number of a page");
  const std::uint64_t seconds = numberIn(target, "wait", "a number of seconds");
  const auto wait = std::chrono::seconds(std::min<std::uint64_t>(seconds, kLongestWaitSeconds));
  const Screen::Text screen = screen_.newest(after, wait);
  if (screen == nullptr) return {};
  return {200, "application/json", *screen, ""};
}

Answer ScreenRoutes::answerFile(const std::string& path) const {
  try {
    return {200, contentType(path), files_.read(path), ""};
  } catch (const PageFiles::Missing&) {
    throw Refused(404, "there is no such file");
  } catch (const Failure&) {
    throw Refused(500, "the file cannot be read");
  }
}

Answer ScreenRoutes::takeResult(const std::string& idText, const Request& request) {
  checkBody(request);
  const auto id = parseNumber(idText);
  if (!id) throw Refused(400, "\"" + idText + "\" is not the number of a page");
  if (!screen_.post(*id, resultIn(request))) throw Refused(409, "the page takes no result any more");
  return {};
}

}  // namespace jxplatform
