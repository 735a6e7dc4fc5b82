// How a service runs until it is told to end.
#pragma once

#include <csignal>

namespace jxplatform {

// Made before any other thread is: those inherit what it does to signals.
class ServiceProcess {
 public:
  // From now on SIGTERM and SIGINT are kept for waitForEnd(), a peer that has gone raises no SIGPIPE, and standard
  // output goes out line by line, so that its reader sees each line as it is printed.
  ServiceProcess();

  // Blocks until SIGTERM or SIGINT. Returns the process's exit status: 0, or 1 when it cannot wait.
  [[nodiscard]] int waitForEnd() const;

 private:
  sigset_t ends_{};
};

}  // namespace jxplatform
