// Any bytes as a form, in any framing that is right or wrong, cut anywhere: each file that is stored was sent and had
// arrived to its end, a result is true exactly when something is stored, and how the form is framed makes no difference
// to its files.
#include <jxapp.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/source_directory.h"
#include "upload/jx_download_server.h"

namespace {

// In the input, as kSilence is and like it itself when doubled: a chunk ends here.
constexpr char kChunkEdge = '\xFD';
// Likewise: the byte before is repeated sixteen times the number that follows. The receiver looks at 4096 bytes at a
// time, and so a short input can have any of its places at their end.
constexpr char kStretch = '\xFC';
constexpr std::size_t kLongEnough = std::size_t{64} * 1024;

const std::string kDelimiter = "\r\n--x";

enum Framing : unsigned { Length, WrongLength, Chunks, ChunksWithoutEnd };

// A form, and where something happens while it is sent.
struct Form {
  struct Event {
    char what;  // kSilence or kChunkEdge
    std::size_t at;
  };

  std::string body;
  std::vector<Event> events;

  // A script cannot state a silence before another one, or before the byte that stands for it.
  void leaveOutUnspeakable() {
    const auto unspeakable = [this](const Event& event) {
      if (event.what != kSilence) return false;
      const auto same = [&event](const Event& other) { return other.what == kSilence && other.at == event.at; };
      return (event.at < body.size() && body[event.at] == kSilence) ||
             &*std::find_if(events.begin(), events.end(), same) != &event;
    };
    std::vector<Event> speakable;
    std::remove_copy_if(events.begin(), events.end(), std::back_inserter(speakable), unspeakable);
    events = std::move(speakable);
  }

  // How much arrives before the first silence.
  std::size_t arriving() const {
    const auto found = std::find_if(events.begin(), events.end(), [](const Event& e) { return e.what == kSilence; });
    return found == events.end() ? std::string::npos : found->at;
  }
};

Form readForm(const char* data, std::size_t size) {
  Form form;
  for (std::size_t i = 0; i < size; ++i) {
    const char c = data[i];
    const bool last = i + 1 == size;
    if (c != kSilence && c != kChunkEdge && c != kStretch) {
      form.body += c;
    } else if (!last && data[i + 1] == c) {
      form.body += c;
      ++i;
    } else if (c != kStretch) {
      form.events.push_back({c, form.body.size()});
    } else if (!last && !form.body.empty() && form.body.size() < kLongEnough) {
      form.body.append(std::size_t{16} * static_cast<std::uint8_t>(data[++i]), form.body.back());
    }
  }
  form.leaveOutUnspeakable();
  return form;
}

std::string escaped(const std::string& bytes) {
  std::string script;
  for (const char c : bytes) script.append(c == kSilence ? 2 : 1, c);
  return script;
}

std::string asChunk(const std::string& script, std::size_t size) {
  if (size == 0) return script;  // none is empty but the last
  char line[20];
  std::snprintf(line, sizeof line, "%zx\r\n", size);
  return line + script + "\r\n";
}

// The body as a peer's script, less its last chunk.
std::string framed(const Form& form, bool chunked) {
  std::string script;
  std::string chunk;
  std::size_t at = 0;
  std::size_t chunkAt = 0;
  const auto goTo = [&](std::size_t place) {
    chunk += escaped(form.body.substr(at, place - at));
    at = place;
  };
  const auto endChunk = [&] {
    script += chunked ? asChunk(chunk, at - chunkAt) : chunk;
    chunk.clear();
    chunkAt = at;
  };
  for (const Form::Event& event : form.events) {
    goTo(event.at);
    if (event.what == kChunkEdge) {
      endChunk();
    } else {
      chunk += kSilence;
    }
  }
  goTo(form.body.size());
  endChunk();
  return script;
}

class Server : public JXDownloadServer {
 public:
  explicit Server(zoripc::IPC* stream) { setConnection(stream); }

  bool receive() {
    zorhtml::HttpMethod method = zorhtml::HttpMethod::Unknown;
    std::string path;
    readRequest(method, path);
    return receiveMultipart("upload", std::string(jxapp::jxInstallSourceDir()) + "/upload.zip", true);
  }
};

struct Outcome {
  std::vector<std::string> files;
  bool open;  // the connection can go on
  std::size_t unread;
};

Outcome receive(const std::string& framing, const std::string& body, Peer::End end) {
  const std::string script =
      "POST /upload HTTP/1.1\r\nContent-Type: multipart/form-data; boundary=x\r\n" + framing + "\r\n\r\n" + body;
  Peer peer(script.data(), script.size(), end);
  Server server(peer.stream());
  const bool result = server.receive();
  Outcome outcome{takeStoredFiles(), !peer.deleted(), peer.unread()};
  require(result == !outcome.files.empty());
  return outcome;
}

std::string lengthOf(std::size_t length) { return "Content-Length: " + std::to_string(length); }

// The files stand in the body one after the other, each between its headers and a delimiter, all before `end`.
void requireSent(const std::vector<std::string>& files, const std::string& body, std::size_t end) {
  std::size_t at = 0;
  for (const std::string& file : files) {
    require(file.find(kDelimiter) == std::string::npos);
    at = body.find("\r\n\r\n" + file + kDelimiter, at);
    require(at != std::string::npos);
    at += 4 + file.size();
    require(at + kDelimiter.size() <= end);
  }
}

}  // namespace

// The first byte says how the connection ends and how the body is framed, the second how wrong a length is.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const Form form = readForm(reinterpret_cast<const char*>(data) + 2, size - 2);
  const std::size_t length = form.body.size();

  const Outcome whole = receive(lengthOf(length), escaped(form.body), Peer::End::Closed);
  require(whole.open && whole.unread == 0);
  requireSent(whole.files, form.body, length);

  const unsigned framing = data[0] / 4U % 4;
  const bool chunked = framing == Chunks || framing == ChunksWithoutEnd;
  std::size_t announced = length;
  if (framing == WrongLength) announced = std::max(length + data[1], std::size_t{128}) - 128;
  const Outcome outcome = receive(chunked ? "Transfer-Encoding: chunked" : lengthOf(announced),
                                  framed(form, chunked) + (framing == Chunks ? "0\r\n\r\n" : ""), endOf(data[0]));

  // A silence behind the announced length is met by nobody; before the last chunk each is.
  const std::size_t arriving = form.arriving();
  const bool cut = chunked ? arriving != std::string::npos : arriving < announced;
  const std::size_t used = std::min({length, announced, cut ? arriving : length});
  require(outcome.open == (!cut && announced <= length && framing != ChunksWithoutEnd));
  if (outcome.open) require(outcome.unread == length - used);
  requireSent(outcome.files, form.body, used);
  require(outcome.files.size() <= whole.files.size());
  require(std::equal(outcome.files.begin(), outcome.files.end(), whole.files.begin()));
  if (outcome.open && used == length) require(outcome.files.size() == whole.files.size());
  return 0;
}
