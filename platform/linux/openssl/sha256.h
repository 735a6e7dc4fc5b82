// SHA-256.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

struct evp_md_ctx_st;

namespace jxplatform {

// Takes bytes piece by piece. Nothing fails before the end, which tells whether the library refused at any step. One
// thread.
class Sha256 {
 public:
  Sha256();
  void add(const void* data, std::size_t size);

  // The digest of all bytes as 64 lower-case hex digits; none when the library refused. Nothing may be added after.
  [[nodiscard]] std::optional<std::string> hex();

 private:
  std::unique_ptr<evp_md_ctx_st, void (*)(evp_md_ctx_st*)> context_;
  bool good_;
};

}  // namespace jxplatform
