#include "platform/linux/openssl/bio.h"

#include <limits>

namespace jxplatform {

Bio memoryOf(const std::string& bytes) {
  if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) return nullptr;
  return Bio(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

std::string contentOf(BIO* memory) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(memory, &data);
  return size > 0 ? std::string(data, static_cast<std::size_t>(size)) : "";
}

int noPassphrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*data*/) { return -1; }

}  // namespace jxplatform
