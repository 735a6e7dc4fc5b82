// Any bytes on the serial line, with check values that are right or not: the receiver ends, or waits for the host's
// next byte. The line is a socket pair; its silence takes no time. The first byte says how the bytes arrive, the second
// which record is refused.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>

#include "fuzz/input.h"
#include "serial/crc16.h"
#include "serial/tessolan.h"
#include "serial/wire.h"

namespace {

constexpr const char* kDevice = "/dev/fuzzed-line";
constexpr int kIdleWaitMs = 500;  // of the receiver between records
constexpr std::size_t kAnswerToOneByte = 1 + tessolan::kParametersSize + 1 + tessolan::kCheckSize;

// The host's end of the line, which sends its bytes piece by piece whenever the receiver waits.
class Host {
 public:
  Host(const std::string& bytes, std::size_t piece, bool hangsUp)
      : next_(bytes.data()), end_(bytes.data() + bytes.size()), piece_(piece), hangsUp_(hangsUp) {
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_) == 0);
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  ~Host() {
    hangUp();
    close(ends_[1]);
  }

  int line() const { return dup(ends_[1]); }
  std::size_t answered() const { return answered_; }

  // Takes what the terminal sent, and sends the next piece. False when nothing is left to send.
  bool turn() {
    takeAnswers();
    if (next_ == end_) {
      if (hangsUp_) hangUp();
      return false;
    }
    const std::size_t size = std::min(piece_, static_cast<std::size_t>(end_ - next_));
    require(::send(ends_[0], next_, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size));
    next_ += size;
    return true;
  }

  void takeAnswers() {
    char answers[4096];
    ssize_t got = 0;
    while (ends_[0] >= 0 && (got = recv(ends_[0], answers, sizeof answers, MSG_DONTWAIT)) > 0) {
      answered_ += static_cast<std::size_t>(got);
    }
  }

 private:
  void hangUp() {
    if (ends_[0] >= 0) close(ends_[0]);
    ends_[0] = -1;
  }

  int ends_[2] = {-1, -1};
  const char* next_;
  const char* const end_;
  const std::size_t piece_;
  const bool hangsUp_;
  std::size_t answered_ = 0;
};

// The length of the record's part under the check value, from its letter on; 0 where it is not whole.
std::size_t checkedLength(const std::string& bytes, std::size_t letterAt) {
  if (bytes[letterAt] != 'W') {
    const std::size_t etxAt = bytes.find(static_cast<char>(tessolan::kETX), letterAt + 1);
    return etxAt == std::string::npos ? 0 : etxAt + 1 - letterAt;
  }
  if (letterAt + 2 >= bytes.size()) return 0;
  const auto high = static_cast<unsigned char>(bytes[letterAt + 1]);
  const auto low = static_cast<unsigned char>(bytes[letterAt + 2]);
  return 1 + tessolan::kHeaderSize + high * std::size_t{256} + low;
}

// Gives every record the check value that it should have, which chance does not find.
void setCheckValues(std::string& bytes) {
  const char stx = static_cast<char>(tessolan::kSTX);
  for (std::size_t at = bytes.find(stx); at != std::string::npos && at + 1 < bytes.size(); at = bytes.find(stx, at)) {
    const std::size_t length = checkedLength(bytes, ++at);
    if (length == 0 || at + length + tessolan::kCheckSize > bytes.size()) continue;
    const std::uint16_t crc = crc16(bytes.data() + at, length);
    at += length;
    bytes[at++] = static_cast<char>(crc >> 8U);
    bytes[at++] = static_cast<char>(crc & 0xFFU);
  }
}

// Of the download under way.
Host* host = nullptr;
Tessolan* receiver = nullptr;

// Accepts all but the records whose number is `refused`, and checks what it is handed.
class CheckingSystem : public Tessolan::System {
 public:
  explicit CheckingSystem(std::size_t refused) : refused_(refused) {}

  bool openFile(const char* name) override { return text(name); }
  bool writeBlock(std::uint32_t /*offset*/, const unsigned char* data, std::uint32_t length) override {
    require(length <= tessolan::kLargestData);
    for (std::uint32_t i = 0; i < length; ++i) sum_ += data[i];
    return take(length);
  }
  bool closeFile() override { return take(0); }
  bool recordR(const char* text) override { return this->text(text); }
  bool showMessage(const char* text) override { return this->text(text); }
  bool recordS() override { return take(0); }
  bool recordU() override { return take(0); }

  std::size_t bytes() const { return bytes_; }
  bool hasRefused() const { return hasRefused_; }

 private:
  bool text(const char* text) {
    const std::size_t length = std::strlen(text);
    require(length < tessolan::kLargestBody);
    return take(length);
  }

  bool take(std::size_t bytes) {
    require(!hasRefused_);  // nothing comes behind a refusal
    bytes_ += bytes;
    hasRefused_ = ++records_ == refused_;
    return !hasRefused_;
  }

  const std::size_t refused_;
  std::size_t records_ = 0;
  std::size_t bytes_ = 0;
  unsigned sum_ = 0;
  bool hasRefused_ = false;
};

}  // namespace

// The linker sends the receiver's calls here (--wrap); the names are its convention.
extern "C" {
int __real_open(const char* path, int flags, ...);
int __real_poll(pollfd* entries, nfds_t count, int timeoutMs);

int __wrap_open(const char* path, int flags, ...) {
  if (host == nullptr) {  // what the compiler has a program do at its end, such as writing counters
    va_list more;
    va_start(more, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    return __real_open(path, flags, mode);
  }
  require(std::strcmp(path, kDevice) == 0);
  return host->line();
}

// What the receiver's open is called with 64-bit file offsets on a 32-bit processor.
int __wrap_open64(const char* path, int flags, ...) __attribute__((alias("__wrap_open")));

int __wrap_poll(pollfd* entries, nfds_t count, int timeoutMs) {
  if (host == nullptr) return __real_poll(entries, count, timeoutMs);
  host->takeAnswers();
  if (count == 0) return 0;  // a pause
  const int ready = __real_poll(entries, count, 0);
  if (ready != 0) return ready;
  if (host->turn()) return __real_poll(entries, count, 0);
  // The host has fallen silent: within a record time runs out, between two the operator gives up.
  if (timeoutMs == kIdleWaitMs) receiver->requestAbort();
  return __real_poll(entries, count, 0);
}
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  std::signal(SIGPIPE, SIG_IGN);  // a socket raises it where a serial line fails
  std::string bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
  if (data[0] >= 64) setCheckValues(bytes);
  Host line(bytes, data[0] % 64U * 8U + 1U, data[0] >= 192);
  CheckingSystem system(data[1]);
  Tessolan terminal(&system);
  host = &line;
  receiver = &terminal;
  const int result = terminal.receive(kDevice);
  line.takeAnswers();
  host = nullptr;
  require(result <= Tessolan::kDone && result >= Tessolan::kRefused && result != Tessolan::kNoDevice);
  require((result == Tessolan::kRefused) == system.hasRefused());
  require(system.bytes() <= size);
  require(line.answered() <= size * kAnswerToOneByte);
  return 0;
}
