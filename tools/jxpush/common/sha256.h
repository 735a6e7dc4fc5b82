// SHA-256, piece by piece.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace jxpush {

class Sha256 {
 public:
  Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;
  ~Sha256();

  void add(const void* data, std::size_t size);
  // The digest in 64 lower-case hex digits. Nothing can be added afterwards.
  std::string finish();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace jxpush
