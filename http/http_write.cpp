// Writing of responses and bodies: one stream write for each line and each piece.
#include <array>
#include <cstdio>
#include <memory>

#include "http/header_text.h"
#include "http/http_proto.h"
#include "http/no_throw.h"
#include "http/status_text.h"
#include "http/whole_body.h"

namespace zorhtml {

namespace {

bool isUpgrade(const std::string& key, const std::string& value) {
  return toLowerCopy(key) == "connection" && toLowerCopy(value) == "upgrade";
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

bool HttpProto::send(std::string_view text) {
  return connection != nullptr && connection->write(text.data(), text.size());
}

bool HttpProto::sendField(std::string_view key, std::string_view value) {
  constexpr std::string_view kSeparator = ": ";
  constexpr std::string_view kLineEnd = "\r\n";
  std::string line;
  line.reserve(key.size() + kSeparator.size() + value.size() + kLineEnd.size());
  return send(line.append(key).append(kSeparator).append(value).append(kLineEnd));
}

bool HttpProto::writeResponseHeader(int status, int contentLength, const std::string& contentType, bool keepAlive,
                                    const HttpHeaders& extra) {
  if (connection == nullptr) return false;
  bodyRemaining = contentLength;
  return noThrow([&] { return sendResponseHead(status, contentType, keepAlive, extra); }, [] { return false; });
}

bool HttpProto::sendResponseHead(int status, const std::string& contentType, bool keepAlive, const HttpHeaders& extra) {
  std::string line;
  line.reserve(64);
  line.append(headers["http-version"]).append(" ").append(std::to_string(status)).append(" ");
  if (!send(line.append(statusText(status)).append("\r\n"))) return false;
  for (const auto& field : extra) {
    if (isUpgrade(field.first, field.second) && !sendField(field.first, field.second)) return false;
  }
  if (!sendResponseFraming(contentType)) return false;
  if (!send(keepAlive ? "Connection: Keep-Alive\r\n" : "Connection: close\r\n")) return false;
  // A "connection" field other than the upgrade goes out beside the line above, deliberately; callers avoid it.
  for (const auto& field : extra) {
    if (isFramingKey(toLowerCopy(field.first)) || isUpgrade(field.first, field.second)) continue;
    if (!sendField(field.first, field.second)) return false;
  }
  return send("\r\n");
}

bool HttpProto::sendResponseFraming(const std::string& contentType) {
  if (bodyRemaining < 0) {
    if (!send("Transfer-Encoding: chunked\r\n")) return false;
  } else if (bodyRemaining > 0 || !contentType.empty()) {
    if (!sendField("Content-Length", std::to_string(bodyRemaining))) return false;
  }
  return contentType.empty() || sendField("Content-Type", contentType);
}

bool HttpProto::writeBody(const void* data, int length) {
  if (connection == nullptr) return false;
  if (length == 0) return true;
  if (noThrow([&] { return writePiece(data, length); }, [] { return false; })) return true;
  dropConnection();
  return false;
}

bool HttpProto::writePiece(const void* data, int length) {
  if (length < 0) return false;
  const auto size = static_cast<std::size_t>(length);
  if (bodyRemaining < 0) {
    std::array<char, 12> sizeLine{};
    std::snprintf(sizeLine.data(), sizeLine.size(), "%x\r\n", static_cast<unsigned>(length));
    return send(sizeLine.data()) && connection->write(data, size) && send("\r\n");
  }
  if (length > bodyRemaining || !connection->write(data, size)) return false;
  bodyRemaining -= length;
  return true;
}

bool HttpProto::writeBody(const std::string& data) {
  return data.empty() || writeBody(data.data(), bodyLength(data.size()));
}

bool HttpProto::writeBody(const std::vector<unsigned char>& data) {
  return data.empty() || writeBody(data.data(), bodyLength(data.size()));
}

bool HttpProto::finishBody() {
  if (connection == nullptr) return false;
  if (bodyRemaining >= 0) {
    // The counter goes down here and in writeBody: half of the shortfall is padded, and an odd one ends in a failed
    // write that closes the connection. The double count is deliberate; peers see exactly these bytes.
    while (bodyRemaining-- != 0) writeBody(" ", 1);
    return true;
  }
  bool sent = false;
  const bool stays = noThrow(
      [&] {
        sent = send("0\r\n\r\n");
        return sent && (clientMode != 0 || toLowerCopy(headers["connection"]).find("close") == std::string::npos);
      },
      [] { return false; });
  if (!stays) dropConnection();
  return sent;
}

bool HttpProto::sendFile(int status, const std::string& name, const std::string& contentType, bool keepAlive,
                         const HttpHeaders& extra) {
  std::unique_ptr<std::FILE, CloseFile> file(std::fopen(name.c_str(), "rb"));
  if (!file) return writeResponseHeader(404, 0, "text/plain", true, {}) && finishBody();
  if (!writeResponseHeader(status, -1, contentType, keepAlive, extra)) return false;
  std::array<char, 4096> block;
  std::size_t count = block.size();
  while (count == block.size()) {
    count = std::fread(block.data(), 1, block.size(), file.get());
    if (count == 0 || !writeBody(block.data(), static_cast<int>(count))) break;
  }
  file.reset();
  // Inverted on purpose: handlers return it as their verdict, so that the connection ends after a file.
  return !finishBody();
}

bool HttpProto::isClosed() {
  if (connection == nullptr) return false;
  char lost = 0;
  connection->readExact(&lost, 1, 0, 0);
  return connection->closed() || connection->failed();
}

}  // namespace zorhtml
