// SHA-256.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

struct evp_md_ctx_st;

namespace jxinstall {

// Takes bytes piece by piece. Throws Failure when the cryptographic library refuses.
class Sha256 {
 public:
  Sha256();
  void add(const char* data, std::size_t size);

  // The digest of all bytes so far as 64 lower-case hex digits. Nothing may be added after.
  std::string hex();

 private:
  std::unique_ptr<evp_md_ctx_st, void (*)(evp_md_ctx_st*)> context_;
};

}  // namespace jxinstall
