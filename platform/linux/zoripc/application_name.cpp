#include "platform/linux/zoripc/application_name.h"

#include "base/text.h"

namespace zoripc {

namespace {

// Without the locale's help: a bus name is ASCII everywhere.
bool isPlain(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); }

}  // namespace

std::string busNameOf(const std::string& id) {
  std::string name = "zoripc.App.a";
  for (const char c : id) {
    if (isPlain(c)) {
      name += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    name += '_' + base::hexDigits(&byte, 1);
  }
  return name;
}

}  // namespace zoripc
