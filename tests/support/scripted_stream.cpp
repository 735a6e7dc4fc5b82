#include "tests/support/scripted_stream.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

class ScriptedPeer::Stream : public zoripc::IPC {
 public:
  explicit Stream(std::shared_ptr<State> state) : state_(std::move(state)) {}
  ~Stream() override {
    state_->deleted = true;
    if (state_->hook) state_->hook();
  }

  int getFD() const override { return state_->fd; }

  bool readExact(void* data, std::size_t size, int timeoutMs, int gapTimeoutMs) override {
    state_->reads.push_back({size, timeoutMs, gapTimeoutMs, true});
    return take(data, size, timeoutMs) == size;
  }

  std::size_t read(void* data, std::size_t size, int timeoutMs) override {
    state_->reads.push_back({size, timeoutMs, -1, false});
    return take(data, size, timeoutMs);
  }

  bool write(const void* data, std::size_t size) override {
    ++state_->writeCalls;
    if (state_->failWriteFrom > 0 && state_->writeCalls >= state_->failWriteFrom) {
      state_->failed = true;
      return false;
    }
    state_->writes.emplace_back(static_cast<const char*>(data), size);
    return true;
  }

  bool closed() const override { return state_->closed; }
  bool failed() const override { return state_->failed; }

 private:
  void end(End how) {
    state_->closed = state_->closed || how == End::Closed;
    state_->failed = state_->failed || how == End::Failed;
  }

  std::size_t takeFromPiece(char* data, std::size_t size) {
    Piece& piece = state_->input.front();
    const std::size_t count = std::min(size, piece.bytes.size() - piece.taken);
    std::copy_n(piece.bytes.data() + piece.taken, count, data);
    piece.taken += count;
    if (piece.taken == piece.bytes.size()) state_->input.pop_front();
    return count;
  }

  std::size_t take(void* data, std::size_t size, int timeoutMs) {
    if (state_->failReadFrom > 0 && state_->reads.size() >= static_cast<std::size_t>(state_->failReadFrom)) {
      end(state_->failReadHow);
      return 0;
    }
    std::size_t total = 0;
    while (total < size) {
      if (state_->input.empty()) {
        end(state_->end);
        break;
      }
      if (state_->input.front().silence) {
        state_->input.pop_front();
        break;
      }
      total += takeFromPiece(static_cast<char*>(data) + total, size - total);
      if (timeoutMs == 0) break;
    }
    return total;
  }

  std::shared_ptr<State> state_;
};

ScriptedPeer::ScriptedPeer(const std::string& input, End end) : state_(std::make_shared<State>()) {
  send(input);
  endWith(end);
}

zoripc::IPC* ScriptedPeer::stream() const {
  if (state_->made) throw std::logic_error("a scripted peer has one stream");
  state_->made = true;
  return new Stream(state_);
}

ScriptedPeer& ScriptedPeer::send(const std::string& bytes) {
  if (!bytes.empty()) state_->input.push_back({bytes, 0, false});
  return *this;
}

ScriptedPeer& ScriptedPeer::pause() {
  state_->input.push_back({"", 0, true});
  return *this;
}

ScriptedPeer& ScriptedPeer::endWith(End end) {
  state_->end = end;
  return *this;
}

ScriptedPeer& ScriptedPeer::failRead(int nth, End how) {
  state_->failReadFrom = nth;
  state_->failReadHow = how;
  return *this;
}

ScriptedPeer& ScriptedPeer::failWrite(int nth) {
  state_->failWriteFrom = nth;
  return *this;
}

ScriptedPeer& ScriptedPeer::descriptor(int fd) {
  state_->fd = fd;
  return *this;
}

ScriptedPeer& ScriptedPeer::onDelete(std::function<void()> hook) {
  state_->hook = std::move(hook);
  return *this;
}

const std::vector<std::string>& ScriptedPeer::writes() const { return state_->writes; }

std::string ScriptedPeer::written() const {
  std::string all;
  for (const std::string& piece : state_->writes) all += piece;
  return all;
}

int ScriptedPeer::writeCalls() const { return state_->writeCalls; }
const std::vector<ScriptedPeer::Read>& ScriptedPeer::reads() const { return state_->reads; }

std::size_t ScriptedPeer::unread() const {
  std::size_t total = 0;
  for (const Piece& piece : state_->input) total += piece.bytes.size() - piece.taken;
  return total;
}

bool ScriptedPeer::deleted() const { return state_->deleted; }
