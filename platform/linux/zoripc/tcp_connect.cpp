#include <cerrno>
#include <exception>
#include <utility>

#include "platform/linux/support/connect.h"
#include "platform/linux/zoripc/tcp_impl.h"

namespace zoripc {

bool TCP::connect(const char* host, unsigned short port, int timeoutMs) {
  if (impl_ == nullptr) {
    errno = ENOMEM;
    return false;
  }
  impl_->listening = {};
  impl_->stream.reset({});
  if (host == nullptr || *host == '\0') {
    errno = EHOSTUNREACH;
    return false;
  }
  try {
    base::Descriptor connected = jxplatform::connectTo(host, port, base::Deadline(timeoutMs));
    if (!connected) return false;
    setNoDelay(connected.get());
    impl_->stream.reset(std::move(connected));
    return true;
  } catch (const std::exception&) {
    errno = ENOMEM;
    return false;
  }
}

}  // namespace zoripc
