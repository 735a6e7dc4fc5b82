// The terminal's IPC library (libzoripc): byte streams, the JSON-like value, notifications between applications.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace zoripc {

// A connected byte stream, or an endpoint that accepts them. Deleting it delivers what was written, if anything, and
// ends the connection in order, even when the peer has sent more than was read: what comes is discarded. It blocks
// until the peer closes in its turn, but no longer than 10 seconds, nor 2 seconds after the peer's last byte, nor for
// more than 64 MiB; a peer that goes on then is reset. A stream that was neither read nor written does not block. One
// thread at a time uses an object; no operation throws; none raises SIGPIPE.
//
// A time-out is in milliseconds, a deadline for the whole call on the monotonic clock: -1 waits without limit,
// 0 takes only what is there already.
class IPC {
 public:
  IPC() = default;
  IPC(const IPC&) = delete;
  IPC& operator=(const IPC&) = delete;
  virtual ~IPC() = default;

  // The descriptor to poll for readiness, owned by this object; -1 when closed.
  virtual int getFD() const = 0;

  // Reads exactly `size` bytes into `data` before `timeoutMs` ends and with no silence longer than `gapTimeoutMs`
  // (-1: any) between two of them. False on end of stream, error or time-out; bytes read by then are lost. Blocks.
  virtual bool readExact(void* data, std::size_t size, int timeoutMs, int gapTimeoutMs = -1) = 0;

  // Reads `size` bytes into `data`. Returns the number read: less than `size` only when the stream ended or failed, or
  // `timeoutMs` was over first. Blocks.
  virtual std::size_t read(void* data, std::size_t size, int timeoutMs) = 0;

  // Writes `size` bytes. Small writes may be gathered: they leave before the next read that blocks, when the gathering
  // buffer is full, and when the stream is deleted; an error of theirs is reported by a later write. False when the
  // stream has failed. Blocks while the peer does not take more; one that takes nothing for 30 seconds fails the
  // stream.
  virtual bool write(const void* data, std::size_t size) = 0;

  // True once a read has met the end of the stream: the failed read was no time-out.
  virtual bool closed() const = 0;

  // True once the stream has failed in either direction for another reason than its end.
  virtual bool failed() const = 0;
};

// A TCP connection or listening endpoint. One that there was no memory for has failed, and does nothing.
class TCP : public IPC {
 public:
  TCP();
  ~TCP() override;

  // Listens on `port` (0: the system chooses one) at the numeric `address`; a null address means every local address,
  // IPv4 and IPv6. Returns non-zero on success, 0 on failure with the reason in errno. Does not block.
  int listen(unsigned short port, const char* address);

  // Connects to `host`, a name or a numeric address (IPv4, IPv6 without brackets), trying each of its addresses.
  // `timeoutMs` bounds the whole attempt, name look-up included. True on success; false with the reason of the last
  // attempt in errno (ETIMEDOUT when the deadline ended it; EHOSTUNREACH when the name has no address). Blocks.
  bool connect(const char* host, unsigned short port, int timeoutMs);

  // Waits for a connection. Returns its stream, owned by the caller, or null on time-out or failure; a failure for want
  // of descriptors or memory returns only after a short pause. Blocks.
  IPC* accept(int timeoutMs);

  // "ADDRESS:PORT" of the local end, an IPv6 address in brackets; empty when there is none.
  std::string localAddress() const;

  int getFD() const override;
  bool readExact(void* data, std::size_t size, int timeoutMs, int gapTimeoutMs = -1) override;
  std::size_t read(void* data, std::size_t size, int timeoutMs) override;
  bool write(const void* data, std::size_t size) override;
  bool closed() const override;
  bool failed() const override;

 private:
  class Impl;
  explicit TCP(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

// A JSON-like value with value semantics; a new one is null. Distinct objects may be used by distinct threads. What
// needs memory throws std::bad_alloc where there is none, as std::string does; parse() says so instead.
class JSObject {
 public:
  JSObject();
  JSObject(bool value);
  JSObject(int value);
  JSObject(long long value);
  JSObject(double value);
  JSObject(const char* value);
  JSObject(const std::string& value);
  JSObject(const JSObject& other);
  JSObject(JSObject&& other) noexcept;
  JSObject& operator=(const JSObject& other);
  JSObject& operator=(JSObject&& other) noexcept;
  ~JSObject();

  static JSObject array();
  static JSObject object();

  bool isNull() const;
  bool isBool() const;
  bool isInt() const;     // the integer numeric kind
  bool isDouble() const;  // the floating numeric kind
  bool isString() const;
  bool isArray() const;
  bool isObject() const;

  // True when this is an object with the member `name`, whatever its value.
  bool has(const std::string& name) const;

  // The member `name`. The writing form makes an object of any other kind and adds a missing member as null; the
  // reading form gives a null value that outlives the caller where there is none.
  JSObject& operator[](const std::string& name);
  const JSObject& operator[](const std::string& name) const;
  JSObject& operator[](const char* name);
  const JSObject& operator[](const char* name) const;

  // Elements of an array, members of an object; 0 for every other kind.
  std::size_t size() const;
  // Element `index` of an array; a null value where there is none.
  const JSObject& at(std::size_t index) const;
  // Adds a copy of `element`; makes an array of any other kind first.
  void append(const JSObject& element);

  bool getBool() const;           // false for every other kind
  int getInt() const;             // of either numeric kind, clamped to int, toward zero; 0 for every other kind
  double getDouble() const;       // of either numeric kind; 0 for every other kind
  std::string getString() const;  // empty for every other kind

  // The value as JSON text in one line; bytes that are not UTF-8 become U+FFFD.
  std::string dump() const;
  // Reads JSON text. False when it is not JSON, has a number beyond the range of double, nests deeper than 100 levels
  // or memory ran out: `value` is null then. An integer that long long cannot hold becomes a double; of members with
  // one name the last counts.
  static bool parse(std::string text, JSObject& value);

 private:
  struct Node;
  std::unique_ptr<Node> node_;
};

// Receives a notification, or the error report of one that could not be delivered (with the name and payload that were
// sent). `data` as registered; `sender` and `receiver` application ids. Called on the library's own thread, one at a
// time; must not throw, and must not register or unregister.
using NotificationCallback = void (*)(void* data, const std::string& sender, const std::string& receiver,
                                      const std::string& name, const JSObject& message, unsigned flags);

// Takes `id` as this process's application id, under which it can be reached. Repeating the same id is allowed. An id
// belongs to one process: where another one has it, this one says so on standard error and ends with exit(1), since
// nothing that is sent to the id would reach it. Not from a callback.
void ipcSetAppID(const char* id);

// Sends the notification `name` with `message` to the application `receiver`. `sender` is this application's id; empty
// means the one set before. Returns 0 when it was handed over, non-zero at once without a transport. Delivery is
// reported only on failure, through the unicast-error callback: when nobody is the receiver, when it refuses, or when
// it ends before it has acknowledged. One that stays silent, however long, is no failure. Any thread; does not wait for
// the receiver.
int ipcNotify(const char* receiver, const char* name, const JSObject& message, unsigned flags, const char* sender);

// Calls `callback` for each notification `name` from `sender` (empty: from anybody). Returns 0 on success.
int ipcRegisterNotificationCB(const char* name, NotificationCallback callback, void* data, unsigned flags,
                              const char* sender);

// Calls `callback` for each notification of ours that could not be delivered. Returns 0 on success.
int ipcRegisterUnicastError(NotificationCallback callback, void* data);

// Ends the registration made with the same arguments; after its return the callback does not run. Returns 0 on success.
int ipcUnregisterUnicastError(NotificationCallback callback, void* data);

}  // namespace zoripc
