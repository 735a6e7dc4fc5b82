// What a zoripc::TCP object is made of.
#pragma once

#include <zoripc.h>

#include <memory>

#include "base/descriptor.h"
#include "platform/linux/zoripc/socket_stream.h"

namespace zoripc {

// Either a connection or a listening endpoint, or neither.
class TCP::Impl {
 public:
  Impl() = default;
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl() = default;

  int fd() const { return listening ? listening.get() : stream.fd(); }

  SocketStream stream;
  base::Descriptor listening;
};

// Makes small messages leave at once. A failure costs speed only and is ignored.
void setNoDelay(int fd);

}  // namespace zoripc
