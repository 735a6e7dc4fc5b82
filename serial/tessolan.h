// The receiving side of the Tessolan download protocol on a serial device.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tessolan {
enum class Reply : unsigned char;
}

class Tessolan {
 public:
  // What the download does with the records it receives. Each operation runs on the receiving thread; true accepts the
  // record, false refuses it and ends the download. Texts end in a zero byte and are valid during the call only.
  //
  // The order of the operations is that of their slots, which is part of the interface.
  class System {
   public:
    System() = default;
    System(const System&) = delete;
    System& operator=(const System&) = delete;
    virtual ~System() = default;

    // 'O': a file begins. `name` is what the host calls it; empty where the record holds no name.
    virtual bool openFile(const char* name) = 0;
    // 'W': `length` bytes (0 to 1024) of the file, `offset` bytes from its start.
    virtual bool writeBlock(std::uint32_t offset, const unsigned char* data, std::uint32_t length) = 0;
    // 'C': the file is complete.
    virtual bool closeFile() = 0;
    virtual bool recordR(const char* text) = 0;
    // 'M': a message for the operator.
    virtual bool showMessage(const char* text) = 0;
    virtual bool recordS() = 0;
    virtual bool recordU() = 0;
  };

  // The results of a download; the port operations use the negative ones too.
  static constexpr int kDone = 0;
  static constexpr int kNoDevice = -1;  // the device cannot be opened or configured
  static constexpr int kAborted = -2;   // by the operator
  static constexpr int kFailed = -3;    // silence, short transfer, check value, three failed records in a row
  static constexpr int kTooLong = -4;   // a record longer than the terminal takes
  static constexpr int kRefused = -5;   // by the System

  // `callbacks` get what is received; not owned, outlive this object.
  explicit Tessolan(System* callbacks);
  Tessolan(const Tessolan&) = delete;
  Tessolan& operator=(const Tessolan&) = delete;
  // Does not close the device: receive() has done so.
  virtual ~Tessolan();

  // Runs one download on `device`: 115200 baud, 8 data bits, no parity, one stop bit. Returns one of the results above;
  // the device is closed then, also when an exception of the System passes through. Blocks until the host ends the
  // download, it fails or is aborted: without limit while the host is silent between records. Allocates nothing.
  [[nodiscard]] int receive(const char* device);

  // Ends the receive() under way with kAborted within half a second, or with kAborted or kFailed within a second when a
  // record is on its way; not while an operation of the System runs, nor while the device takes no reply. Has no effect
  // on a receive() that opens its device later. Any thread.
  void requestAbort();

 protected:
  // Makes the open device a raw line; what had been received is discarded. A `baud` that the system has no constant for
  // means B0 (hang-up); `dataBits` other than 5, 6, 7 means 8; `parity` other than 'E', 'O' means none; `stopBits`
  // other than 2 means 1. Returns -1 when no device is open, else 0: whether the device took the settings is not looked
  // at.
  int setupPort(unsigned baud, int dataBits, char parity, int stopBits);

  // Waits for input. Returns 1 when there is some, 0 after `timeoutMs` milliseconds without, whatever else the device
  // reports, -2 once aborted (also when input waits), -3 on failure.
  [[nodiscard]] int waitForInput(int timeoutMs);

  // Reads `count` bytes. Returns their number, less only when the device failed; -3 after a second without a byte, or a
  // negative result of waitForInput().
  [[nodiscard]] int readBytes(unsigned char* buffer, std::size_t count);

  // Reads up to and including ETX and the two bytes behind it, and nothing further. Returns the number of bytes read,
  // -4 when they do not fit `capacity`, -3 on a short read, or a negative result of readBytes().
  [[nodiscard]] int readRecordBody(unsigned char* buffer, std::size_t capacity);

  // Writes `count` bytes. Returns their number, less only when the device failed. Blocks while the device takes none.
  [[nodiscard]] int writeBytes(const void* buffer, std::size_t count);

  // The order of the fields is part of the interface.
  System* system;
  std::int32_t fd = -1;                     // of the open device; -1 when closed
  std::atomic<unsigned char> abortFlag{0};  // not 0: abort

 private:
  [[nodiscard]] int serveHost();
  [[nodiscard]] bool send(tessolan::Reply reply);
};
