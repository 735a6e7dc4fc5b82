#include "platform/linux/zoripc/application_name.h"

namespace zoripc {

namespace {

// Without the locale's help: a bus name is ASCII everywhere.
bool isPlain(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); }

}  // namespace

std::string busNameOf(const std::string& id) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string name = "zoripc.App.a";
  for (const char c : id) {
    if (isPlain(c)) {
      name += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    name += '_';
    name += kDigits[byte >> 4U];
    name += kDigits[byte & 0xFU];
  }
  return name;
}

}  // namespace zoripc
