#include "platform/linux/support/service_process.h"

#include <pthread.h>

#include <cstdio>

namespace jxplatform {

ServiceProcess::ServiceProcess() {
  sigemptyset(&ends_);
  sigaddset(&ends_, SIGTERM);
  sigaddset(&ends_, SIGINT);
  pthread_sigmask(SIG_BLOCK, &ends_, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
}

int ServiceProcess::waitForEnd() const {
  int signal = 0;
  return sigwait(&ends_, &signal) == 0 ? 0 : 1;
}

}  // namespace jxplatform
