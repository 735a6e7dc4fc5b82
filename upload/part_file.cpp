#include "upload/part_file.h"

#include <new>

#include "base/ignore.h"

namespace {

// Pieces arrive by 4 KiB at most; writing them out one by one would cost an upload a third of its speed.
constexpr std::size_t kBufferSize = std::size_t{64} * 1024;

}  // namespace

PartFile::~PartFile() { discard(); }

bool PartFile::open(const std::string& path) {
  path_ = path;
  if (!buffer_) buffer_.reset(new (std::nothrow) char[kBufferSize]);
  stream_ = std::fopen(path.c_str(), "wb");
  // Without memory for the large buffer the stream keeps its own.
  if (stream_ != nullptr && buffer_) std::setvbuf(stream_, buffer_.get(), _IOFBF, kBufferSize);
  return stream_ != nullptr;
}

void PartFile::write(const char* data, std::size_t size) {
  if (stream_ != nullptr) std::fwrite(data, 1, size, stream_);
}

bool PartFile::failed() const { return stream_ != nullptr && std::ferror(stream_) != 0; }

bool PartFile::keep() {
  const bool written = !failed();
  // What the buffer still holds is written here, so that a disk can turn out to be full only now.
  const bool stored = close() && written;
  if (!stored) std::remove(path_.c_str());
  return stored;
}

void PartFile::discard() {
  if (stream_ == nullptr) return;
  base::ignore(close());  // it goes all the same
  std::remove(path_.c_str());
}

bool PartFile::close() {
  const bool closed = std::fclose(stream_) == 0;
  stream_ = nullptr;
  return closed;
}
