#include "tools/jxpush/http/status.h"

#include <cstdio>
#include <ctime>

#include "http/status_text.h"
#include "tools/jxpush/common/display_text.h"
#include "tools/jxpush/common/json_line.h"
#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/common/stop_signals.h"
#include "tools/jxpush/http/answer_page.h"

namespace jxpush {

namespace {

constexpr std::size_t kLargestAnswer = std::size_t{16} << 20U;
constexpr int kOk = 200;

[[noreturn]] void failForeign(const HttpConnection& connection, const std::string& reason) {
  throw Problem(ExitCode::kGaveUp, connection.address.text() + " is not a terminal's upload server: " + reason,
                "not-a-terminal");
}

[[noreturn]] void failLost(const HttpExchange& exchange) {
  if (exchange.state().end == StreamState::End::Interrupted) throw Problem(ExitCode::kInterrupted, "interrupted");
  throw Problem(ExitCode::kNoPort, exchange.stateText(), "connection-lost");
}

std::string get(const HttpConnection& connection, const std::string& path, const std::string& contentType) {
  HttpExchange exchange(connection);
  if (!exchange.begin(zorhtml::HttpMethod::Get, path, 0, "")) failLost(exchange);
  const AnswerHead head = exchange.readHead();
  std::string content;
  const bool read = head.status == kOk && exchange.readContent(content, kLargestAnswer);
  if (exchange.state().end != StreamState::End::None) failLost(exchange);
  if (head.status == 0) failForeign(connection, "its answer is not HTTP");
  if (head.status != kOk) {
    failForeign(connection, path + ": " + std::to_string(head.status) + " (" + zorhtml::statusText(head.status) + ")");
  }
  if (!read || head.contentType != contentType) failForeign(connection, path + " is not what a terminal has there");
  return content;
}

const char* validityOf(const Certificate& certificate) {
  const auto now = static_cast<std::int64_t>(std::time(nullptr));
  if (now < certificate.notBefore) return "not yet valid";
  return now > certificate.notAfter ? "expired" : "valid";
}

nlohmann::json toJson(const Certificate& certificate) {
  if (!certificate.error.empty()) return {{"file", certificate.file}, {"error", certificate.error}};
  return {{"file", certificate.file},
          {"subject", certificate.subject},
          {"issuer", certificate.issuer},
          {"not_before", timeText(certificate.notBefore)},
          {"not_after", timeText(certificate.notAfter)},
          {"validity", validityOf(certificate)},
          {"sha256", certificate.sha256}};
}

// Names come from outside and may hold what a terminal would obey.
void printLine(const std::string& line) { std::printf("%s\n", displayText(line, stdout).c_str()); }

void printText(const HttpConnection& connection, const std::vector<Certificate>& certificates) {
  printLine("A terminal answers at " + connection.address.text());
  if (certificates.empty()) printLine("It offers no certificates");
  for (const Certificate& certificate : certificates) {
    if (!certificate.error.empty()) {
      printLine(certificate.file + ": " + certificate.error);
      continue;
    }
    printLine(certificate.file + ": " + certificate.subject);
    printLine("  issued by " + certificate.issuer);
    printLine("  " + timeText(certificate.notBefore) + " to " + timeText(certificate.notAfter) + ", " +
              validityOf(certificate));
    printLine("  sha256 " + certificate.sha256);
  }
  std::fflush(stdout);
}

int report(const nlohmann::json& result) {
  std::printf("%s\n", jsonLine(result, stdout).c_str());
  std::fflush(stdout);
  return result["code"];
}

int showCertificates(const HttpConnection& connection, const Options& options) {
  const std::vector<Certificate> certificates = readTerminalCertificates(connection);
  if (!options.json) {
    printText(connection, certificates);
    return 0;
  }
  nlohmann::json list = nlohmann::json::array();
  for (const Certificate& certificate : certificates) list.push_back(toJson(certificate));
  return report({{"event", "result"}, {"status", "reachable"}, {"code", 0}, {"certificates", list}});
}

}  // namespace

std::vector<Certificate> readTerminalCertificates(const HttpConnection& connection) {
  if (!isFormPage(get(connection, "/", "text/html"))) failForeign(connection, "its page is not a terminal's");
  const std::string archive = get(connection, "/certificates.tar", "application/x-tar");
  return archive.empty() ? std::vector<Certificate>() : readCertificateArchive(archive);
}

int showStatus(const Options& options) {
  const std::string& target = options.targets.front();
  if (!isHttpTarget(target)) throw Problem(ExitCode::kUsage, "status takes --to http://HOST[:PORT]");
  HttpConnection connection;
  connection.address = parseHttpAddress(target);
  connection.waitSeconds = options.waitSeconds;
  connection.waitForDoor = options.waitGiven;
  connection.silenceSeconds = options.silenceSeconds;
  connection.stopFd = catchStopSignals();
  try {
    return showCertificates(connection, options);
  } catch (const Problem& problem) {
    std::fprintf(stderr, "jxpush: %s\n", displayText(problem.what(), stderr).c_str());
    if (!options.json) return static_cast<int>(problem.code());
    return report({{"event", "result"},
                   {"status", problem.status()},
                   {"code", static_cast<int>(problem.code())},
                   {"message", problem.what()}});
  }
}

}  // namespace jxpush
