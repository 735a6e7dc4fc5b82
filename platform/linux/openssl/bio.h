// Bytes in memory as OpenSSL reads and writes them.
#pragma once

#include <string>

#include "platform/linux/openssl/owners.h"

namespace jxplatform {

// Something to read `bytes` from, which must outlive it. Null for want of memory, or when there are more bytes than an
// int counts.
[[nodiscard]] Bio memoryOf(const std::string& bytes);

// What was written to `memory`, made with BIO_s_mem().
[[nodiscard]] std::string contentOf(BIO* memory);

// For the readers of PEM, in place of the library's question for a passphrase at the terminal: there is none.
int noPassphrase(char* buffer, int size, int writing, void* data);

}  // namespace jxplatform
