#include "serial/tessolan.h"

#include <fcntl.h>

#include <utility>

#include "base/descriptor.h"
#include "serial/conversation.h"

using tessolan::Conversation;
using tessolan::Reply;

namespace {

constexpr int kIdleWaitMs = 500;

// Closes the device on every way out of a download.
class DeviceCloser {
 public:
  explicit DeviceCloser(std::int32_t& fd) : fd_(fd) {}
  DeviceCloser(const DeviceCloser&) = delete;
  DeviceCloser& operator=(const DeviceCloser&) = delete;
  ~DeviceCloser() { const base::Descriptor closed(std::exchange(fd_, -1)); }

 private:
  std::int32_t& fd_;
};

}  // namespace

Tessolan::Tessolan(System* callbacks) : system(callbacks) {}

Tessolan::~Tessolan() = default;

void Tessolan::requestAbort() { abortFlag.store(1, std::memory_order_relaxed); }

int Tessolan::receive(const char* device) {
  // Deliberately without further flags: the line blocks, and may become the controlling terminal.
  fd = open(device, O_RDWR);
  if (fd < 0) return kNoDevice;
  const DeviceCloser closer(fd);
  abortFlag.store(0, std::memory_order_relaxed);
  if (setupPort(115200, 8, 'N', 1) == -1) return kNoDevice;
  return serveHost();
}

int Tessolan::serveHost() {
  Conversation conversation(*system);
  for (;;) {
    if (conversation.isIdle()) {
      const int ready = waitForInput(kIdleWaitMs);
      if (ready < 0) return ready;
      if (ready == 0) continue;
    }
    const Conversation::Wanted wanted = conversation.wanted();
    const int got = wanted.isBody ? readRecordBody(wanted.place, wanted.size) : readBytes(wanted.place, wanted.size);
    const Conversation::Turn turn = conversation.take(got);
    const bool sent = send(turn.reply);
    if (turn.result != Conversation::kGoOn) return turn.result;
    if (!sent) return kFailed;
  }
}

bool Tessolan::send(Reply reply) {
  if (reply == Reply::kNone) return true;
  if (reply != Reply::kParameterRecord) return writeBytes(&reply, 1) == 1;
  unsigned char record[tessolan::kParameterRecordSize];
  tessolan::writeParameterRecord(record);
  // Deliberately in two writes, the check value by itself.
  constexpr std::size_t kBegin = tessolan::kParameterRecordSize - tessolan::kCheckSize;
  if (writeBytes(record, kBegin) != static_cast<int>(kBegin)) return false;
  return writeBytes(record + kBegin, tessolan::kCheckSize) == static_cast<int>(tessolan::kCheckSize);
}
