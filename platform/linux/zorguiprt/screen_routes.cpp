#include "platform/linux/zorguiprt/screen_routes.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <optional>
#include <utility>
#include <variant>

#include "base/text.h"
#include "platform/linux/zorguiprt/request_reader.h"
#include "platform/linux/zorguiprt/screen_json.h"
#include "platform/linux/zorguiprt/shell_document.h"

namespace jxplatform {
namespace {

constexpr const char* kScreenPath = "/api/screen";
constexpr const char* kPagesPrefix = "/pages/";

// Why a request is none of this server's own; empty when it is one.
std::string foreignness(const Request& request, const OwnNames& names) {
  const auto host = request.fields.find("host");
  if (request.fields.count("host") != 1 || !names.isOwnHost(host->second)) {
    return "the request's Host is not a name of this screen";
  }
  const auto origin = request.fields.find("origin");
  const auto origins = request.fields.count("origin");
  if (origins > 1 || (origins == 1 && !names.isOwnOrigin(origin->second))) {
    return "the request's Origin is not this screen";
  }
  return {};
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

// A parameter of the query that is a number; `number` stays as it is where it is not given. False when it is malformed.
bool readNumber(const RequestTarget& target, const std::string& name, std::uint64_t& number) {
  const auto count = target.parameters.count(name);
  if (count == 0) return true;
  const auto value = parseNumber(target.parameters.find(name)->second);
  if (count > 1 || !value) return false;
  number = *value;
  return true;
}

bool isForm(const Request& request) {
  const auto type = request.fields.find("content-type");
  return type != request.fields.end() && base::beginsWith(type->second, "multipart/form-data");
}

// Why a result's body cannot be read; empty when it can.
std::string bodyFault(const Request& request) {
  if (request.bodyState == Request::Body::kTooLong) {
    return "the body is longer than " + std::to_string(kLargestBody) + " bytes";
  }
  if (isForm(request)) return "a result is JSON, not a form";
  return request.bodyState == Request::Body::kIncomplete ? "the body is incomplete" : "";
}

}  // namespace

ScreenRoutes::ScreenRoutes(Screen& screen, PageFiles files, const std::string& title)
    : screen_(screen), files_(std::move(files)), document_(shellDocument(title)) {}

Answer ScreenRoutes::answer(const Request& request, const OwnNames& names) {
  const std::string foreign = foreignness(request, names);
  if (!foreign.empty()) return refusal(403, foreign);
  const RequestTarget target = parseTarget(request.target);
  const std::string& path = target.path;
  if (const auto id = resultId(path))
    return request.method == "POST" ? takeResult(*id, request) : methodRefusal("POST");
  if (path != "/" && path != kScreenPath && !base::beginsWith(path, kPagesPrefix)) {
    return refusal(404, "there is nothing at this path");
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
  std::uint64_t after = 0;
  std::uint64_t seconds = 0;
  if (!readNumber(target, "after", after)) return refusal(400, "\"after\" is not the number of a page");
  if (!readNumber(target, "wait", seconds)) return refusal(400, "\"wait\" is not a number of seconds");
  const auto wait = std::chrono::seconds(std::min<std::uint64_t>(seconds, kLongestWaitSeconds));
  const Screen::Text screen = screen_.newest(after, wait);
  if (screen == nullptr) return {};
  return {200, "application/json", *screen, ""};
}

Answer ScreenRoutes::answerFile(const std::string& path) const {
  std::string content;
  switch (files_.read(path, content)) {
    case PageFiles::Outcome::kMissing:
      return refusal(404, "there is no such file");
    case PageFiles::Outcome::kUnreadable:
      return refusal(500, "the file cannot be read");
    case PageFiles::Outcome::kRead:
      break;
  }
  return {200, contentType(path), std::move(content), ""};
}

Answer ScreenRoutes::takeResult(const std::string& idText, const Request& request) {
  const std::string fault = bodyFault(request);
  if (!fault.empty()) return refusal(400, fault);
  const auto id = parseNumber(idText);
  if (!id) return refusal(400, "\"" + idText + "\" is not the number of a page");
  auto result = parseResult(request.body);
  if (const auto* reason = std::get_if<Refusal>(&result)) return refusal(400, reason->reason);
  if (!screen_.post(*id, std::move(std::get<PageResult>(result)))) {
    return refusal(409, "the page takes no result any more");
  }
  return {};
}

}  // namespace jxplatform
