#include "platform/linux/zoripc/application_name.h"

#include "base/text.h"

namespace zoripc {

std::string busNameOf(const std::string& id) {
  std::string name = "zoripc.App.a";
  for (const char c : id) {
    if (base::isLetter(c) || base::isDigit(c)) {
      name += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    name += '_' + base::hexDigits(&byte, 1);
  }
  return name;
}

}  // namespace zoripc
