// A file to be sent.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "base/descriptor.h"

namespace jxpush {

class InputFile {
 public:
  // Opens the regular file `path`. Throws Problem(kInput).
  explicit InputFile(const std::string& path);
  InputFile(InputFile&&) noexcept = default;
  InputFile& operator=(InputFile&&) = delete;
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  ~InputFile() = default;

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] const std::string& name() const { return name_; }  // the path's last part
  [[nodiscard]] std::uint64_t size() const { return size_; }
  // In 64 lower-case hex digits; empty before readDigest().
  [[nodiscard]] const std::string& sha256() const { return sha256_; }

  // Reads the whole file for its digest, which takes a while for a large one: `stopped`, unless empty, is asked before
  // each piece and at the end. Throws Problem: kInput, kInterrupted once `stopped` has said true.
  void readDigest(const std::function<bool()>& stopped = nullptr);
  // Reads exactly `size` bytes at `offset`. Throws Problem(kInput), also when the file has become shorter.
  void read(std::uint64_t offset, void* data, std::size_t size) const;
  // Throws Problem(kInput) when the file has been changed since it was opened.
  void checkUnchanged() const;

 private:
  std::string path_;
  std::string name_;
  base::Descriptor fd_;
  std::uint64_t size_ = 0;
  std::int64_t changedSeconds_ = 0;
  std::int64_t changedNanoseconds_ = 0;
  std::string sha256_;
};

}  // namespace jxpush
