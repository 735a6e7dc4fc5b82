// Requests as they come over a connection.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/linux/zorguiprt/connection.h"
#include "platform/linux/zorguiprt/request.h"

namespace jxplatform {

constexpr std::size_t kLargestHead = std::size_t{32} << 10U;   // bytes of a request's line and header
constexpr std::size_t kLargestBody = std::size_t{1} << 20U;    // bytes of a body that are kept
constexpr std::uint64_t kMostRead = std::uint64_t{16} << 20U;  // bytes of a body that are read to be thrown away

enum class Reading {
  kRequest,      // a request with a whole head
  kNothing,      // the client said nothing
  kMalformed,    // no request, or the head stops short
  kHeadTooLong,  // a head of more than kLargestHead
};

// Reads one request of HTTP/1.0 or 1.1, with its body, so that the answer is not lost to a connection that is reset. A
// body may be of a stated length or in chunks; a client that expects "100-continue" is told so. `request` is filled
// with kRequest alone, whose body may stop short or be too long all the same: one of more than kMostRead is not read to
// its end. Blocks as long as the connection does. Throws std::bad_alloc.
[[nodiscard]] Reading readRequest(Connection& connection, Request& request);

}  // namespace jxplatform
