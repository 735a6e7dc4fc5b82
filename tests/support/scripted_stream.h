// A stream under a test's control: what it reads is scripted, what is written is recorded, any call can be made to
// fail.
#pragma once

#include <zoripc.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

// The far end of a scripted stream, and the record of what was done to it. Copies share one state, which outlives the
// stream, so that a test can look after the engine has deleted it. One thread at a time.
class ScriptedPeer {
 public:
  // How reads end once the scripted bytes are used up, and how a call that is told to fail does so.
  enum class End { Closed, TimedOut, Failed };

  explicit ScriptedPeer(const std::string& input = "", End end = End::Closed);

  // Makes the stream; the caller owns it. Once per peer.
  zoripc::IPC* stream() const;

  // --- the script; each returns the peer, to be chained ---

  // Appends bytes to be read. They arrive as one piece: a read with time-out 0 takes no more than the piece at hand,
  // any other waits across pieces.
  ScriptedPeer& send(const std::string& bytes);
  // Appends a silence longer than any time-out: the read that meets it times out, a later one goes on behind it.
  ScriptedPeer& pause();
  ScriptedPeer& endWith(End end);
  // Makes the `nth` read (counted from 1, both kinds) and every later one fail, or the `nth` write and every later one.
  ScriptedPeer& failRead(int nth, End how = End::Failed);
  ScriptedPeer& failWrite(int nth);
  // The descriptor that the stream reports; -1 unless set.
  ScriptedPeer& descriptor(int fd);
  // Runs in the stream's destructor.
  ScriptedPeer& onDelete(std::function<void()> hook);

  // --- the record ---

  struct Read {
    std::size_t size;
    int timeoutMs;
    int gapTimeoutMs;  // -1 where none was given
    bool exact;
  };

  const std::vector<std::string>& writes() const;  // one entry for each write that succeeded
  std::string written() const;                     // all of them together
  int writeCalls() const;                          // failed ones too
  const std::vector<Read>& reads() const;          // every call, failed ones too
  std::size_t unread() const;                      // scripted bytes that nobody has read
  bool deleted() const;

 private:
  class Stream;
  struct Piece {
    std::string bytes;
    std::size_t taken;
    bool silence;
  };
  struct State {
    std::deque<Piece> input;
    End end = End::Closed;
    int failReadFrom = 0;
    End failReadHow = End::Failed;
    int failWriteFrom = 0;
    int fd = -1;
    std::function<void()> hook;
    std::vector<std::string> writes;
    int writeCalls = 0;
    std::vector<Read> reads;
    bool closed = false;
    bool failed = false;
    bool made = false;
    bool deleted = false;
  };
  std::shared_ptr<State> state_;
};
