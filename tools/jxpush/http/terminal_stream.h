// The stream of an HTTP exchange with a terminal, which the user can interrupt.
//
// It differs from zoripc::TCP in what a sender needs: it notices an answer that comes before everything has been sent,
// it says why it ended, and closing it ends the connection at once, so that nothing more of an upload that was given up
// leaves.
#pragma once

#include <zoripc.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "tools/jxpush/http/address.h"

namespace jxpush {

// Why a stream ended, and how far it got. Outlives the stream.
struct StreamState {
  enum class End {
    None,
    Interrupted,
    Silent,  // the terminal took or gave nothing for the time allowed
    Closed,  // the terminal closed the connection
    Broken,
  };
  End end = End::None;
  int error = 0;           // errno, for Broken
  bool answering = false;  // the terminal has begun to answer; nothing more is sent

  // "the terminal closed the connection" and the like.
  [[nodiscard]] std::string text(int silenceMs) const;
};

class TerminalStream : public zoripc::IPC {
 public:
  // `connection` is connected. `silenceMs` bounds the wait of a write; `stopFd` becomes readable when the user
  // interrupts, -1: never.
  TerminalStream(std::unique_ptr<zoripc::TCP> connection, int silenceMs, int stopFd, StreamState& state);

  // How many bytes of those written have not reached the terminal.
  [[nodiscard]] std::uint64_t unacknowledged() const;
  // Sends what was gathered. Returns what write() does.
  [[nodiscard]] bool flush();
  // Waits until the terminal's system has all that was sent, or an answer has come. Calls `onProgress` as it gets more.
  // False when the stream has ended.
  [[nodiscard]] bool waitUntilArrived(const std::function<void()>& onProgress);

  [[nodiscard]] int getFD() const override { return connection_->getFD(); }
  [[nodiscard]] bool readExact(void* data, std::size_t size, int timeoutMs, int gapTimeoutMs = -1) override;
  [[nodiscard]] std::size_t read(void* data, std::size_t size, int timeoutMs) override;
  // True also for bytes that are not sent any more because the terminal has begun to answer.
  [[nodiscard]] bool write(const void* data, std::size_t size) override;
  [[nodiscard]] bool closed() const override { return state_.end == StreamState::End::Closed; }
  [[nodiscard]] bool failed() const override { return state_.end != StreamState::End::None && !closed(); }

 private:
  [[nodiscard]] bool ends(StreamState::End end, int error = 0);
  [[nodiscard]] bool waitFor(short events, int timeoutMs, short& happened);
  [[nodiscard]] bool waitForRoom();
  [[nodiscard]] bool noteInput();
  [[nodiscard]] bool receive(int timeoutMs);

  const std::unique_ptr<zoripc::TCP> connection_;
  const int silenceMs_;
  const int stopFd_;
  StreamState& state_;
  std::string gathered_;
  std::array<char, 16384> input_;
  std::size_t inputBegin_ = 0;
  std::size_t inputEnd_ = 0;
};

// A connection to `address`, made within `waitSeconds`. With `waitForDoor`, whoever is refused, or finds nobody there,
// tries again each second until then, as a terminal listens only once its operator has chosen so; without, that fails
// at once. Throws Problem: kNoPort, kInterrupted. Blocks.
[[nodiscard]] std::unique_ptr<zoripc::TCP> connectTo(const HttpAddress& address, int waitSeconds, bool waitForDoor,
                                                     int stopFd);

}  // namespace jxpush
