// A pseudo-terminal: a serial device under a path, and the test's end of it.
#pragma once

#include <string>

class PtyPair {
 public:
  // Raw from the start, so that nothing is echoed before somebody has configured the device. Throws
  // std::system_error.
  PtyPair();
  PtyPair(const PtyPair&) = delete;
  PtyPair& operator=(const PtyPair&) = delete;
  ~PtyPair();

  // The device's path.
  const std::string& path() const { return path_; }
  // The test's end; -1 after hangUp().
  int master() const { return master_; }
  // The device, held open: without it the master would report a hang-up while nobody else has the device open.
  int device() const { return device_; }

  // Writes all of `bytes` to the device's reader. False on a hang-up or after 20 s.
  bool send(const std::string& bytes) const;
  // Reads `count` bytes that were written to the device; fewer on a hang-up or after `timeoutMs` of silence.
  std::string receive(std::size_t count, int timeoutMs = 20000) const;
  // Everything that was written to the device until now, up to a byte 0xF7.
  std::string pending() const;
  // The bytes that wait for the device's reader.
  int unread() const;

  // Ends the exclusive use that a killed program has left behind. Closing the device for the last time does so, but
  // this object keeps it open.
  void release() const;

  // Ends the line as a pulled plug does: readers of the device see a hang-up.
  void hangUp();

 private:
  int master_ = -1;
  int device_ = -1;
  std::string path_;
};
