// What the fuzzers share: a peer that does what the input says, and checks that end the process.
#pragma once

#include <zoripc.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

// Ends the process unless `held`: that is how a fuzzer reports a finding.
inline void require(bool held) {
  if (!held) std::abort();
}

// In what the peer sends: here it is silent for longer than any time-out. Doubled it is a byte like any other.
constexpr char kSilence = '\xFE';

// A peer that sends a script, and what became of its stream, which it outlives. The engine waits for all the bytes that
// it asks for, so that it cannot see in what pieces they come; what it can see is where they stop to come and how. The
// stream takes no memory but itself.
class Peer {
 public:
  // How reads end behind the script.
  enum class End : unsigned { Closed, Silent, Failed };

  // `script` is not copied. The write `failingWrite`, counted from 1, fails and so do later ones; 0: none does.
  Peer(const char* script, std::size_t size, End end, unsigned failingWrite = 0)
      : at_(script), scriptEnd_(script + size), end_(end), failingWrite_(failingWrite) {}
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  ~Peer() = default;

  // The caller owns it. Once per peer.
  zoripc::IPC* stream() { return new Stream(*this); }

  std::size_t unread() const {
    std::size_t count = 0;
    for (const char* at = at_; at != scriptEnd_; at = next(at)) count += isSilence(at) ? 0 : 1;
    return count;
  }
  std::size_t written() const { return written_; }
  bool deleted() const { return deleted_; }

 private:
  class Stream : public zoripc::IPC {
   public:
    explicit Stream(Peer& peer) : peer_(peer) {}
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    ~Stream() override { peer_.deleted_ = true; }

    int getFD() const override { return -1; }
    bool readExact(void* data, std::size_t size, int /*timeoutMs*/, int /*gapTimeoutMs*/) override {
      return peer_.take(static_cast<char*>(data), size) == size;
    }
    std::size_t read(void* data, std::size_t size, int /*timeoutMs*/) override {
      return peer_.take(static_cast<char*>(data), size);
    }
    bool write(const void* /*data*/, std::size_t size) override { return peer_.put(size); }
    bool closed() const override { return peer_.closed_; }
    bool failed() const override { return peer_.failed_; }

   private:
    Peer& peer_;
  };

  bool isSilence(const char* at) const { return *at == kSilence && (at + 1 == scriptEnd_ || at[1] != kSilence); }
  const char* next(const char* at) const { return at + (*at == kSilence && !isSilence(at) ? 2 : 1); }

  std::size_t take(char* data, std::size_t size) {
    for (std::size_t count = 0; count < size; ++count) {
      const char* const at = at_;
      if (at == scriptEnd_) {
        closed_ = closed_ || end_ == End::Closed;
        failed_ = failed_ || end_ == End::Failed;
        return count;
      }
      at_ = next(at);
      if (isSilence(at)) return count;
      data[count] = *at;
    }
    return size;
  }

  bool put(std::size_t size) {
    ++writes_;
    if (failingWrite_ > 0 && writes_ >= failingWrite_) {
      failed_ = true;
      return false;
    }
    written_ += size;
    return true;
  }

  const char* at_;
  const char* const scriptEnd_;
  const End end_;
  const unsigned failingWrite_;
  unsigned writes_ = 0;
  std::size_t written_ = 0;
  bool closed_ = false;
  bool failed_ = false;
  bool deleted_ = false;
};

inline Peer::End endOf(unsigned byte) {
  return byte % 4 == 1 ? Peer::End::Silent : byte % 4 == 2 ? Peer::End::Failed : Peer::End::Closed;
}

// A peer that sends the input but its first byte, whose lower two bits say how the connection ends and whose other six
// which write fails.
inline Peer peerOf(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return {nullptr, 0, Peer::End::Closed};
  return {reinterpret_cast<const char*>(data) + 1, size - 1, endOf(data[0]), data[0] / 4U};
}
