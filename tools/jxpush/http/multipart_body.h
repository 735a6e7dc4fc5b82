// The framing of an upload form's body.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/jxpush/common/input_file.h"

namespace jxpush {

// The text that separates parts. That it does not occur in a file cannot be checked for a stream, so that it is random
// and long enough not to occur: "jxpush-" and 48 hex digits. Throws std::exception where the system has no randomness.
[[nodiscard]] std::string randomBoundary();

class MultipartBody {
 public:
  // `boundary` is made of letters, digits and "-". The files' content is not read.
  MultipartBody(const std::vector<InputFile>& files, std::string boundary);

  // The value of the request's "Content-Type" field.
  [[nodiscard]] std::string contentType() const { return "multipart/form-data; boundary=" + boundary_; }
  // What stands before the content of the file.
  [[nodiscard]] std::string head(std::size_t index) const;
  // What stands after the content of the file and makes it whole: the next file's head, or the body's end.
  [[nodiscard]] std::string tail(std::size_t index) const;
  // Of the whole body, in bytes.
  [[nodiscard]] std::uint64_t size() const;
  // The body's length as a request announces it; -1, for a body in chunks, beyond what an int holds.
  [[nodiscard]] int announcedLength() const;

 private:
  const std::vector<InputFile>& files_;
  const std::string boundary_;
};

}  // namespace jxpush
