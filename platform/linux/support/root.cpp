#include "platform/linux/support/root.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>

namespace jxplatform {
namespace {

constexpr mode_t kDirectoryMode = 0755;
// The program has room for 116 bytes with "/source", the name of a socket for 107 with "/bus".
constexpr std::size_t kMaxBytes = 100;

std::string findRoot() {
  const char* configured = std::getenv("JXPLATFORM_ROOT");
  std::string path = configured != nullptr && *configured != '\0' ? configured : "/var/lib/jxplatform";
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  if (path.size() > kMaxBytes) {
    std::fprintf(stderr, "JXPLATFORM_ROOT has %s bytes, at most %s are allowed: choose a shorter path\n",
                 std::to_string(path.size()).c_str(), std::to_string(kMaxBytes).c_str());
    std::exit(1);
  }
  for (std::size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
    mkdir(path.substr(0, end).c_str(), kDirectoryMode);
  }
  mkdir(path.c_str(), kDirectoryMode);
  return path;
}

}  // namespace

// Never destroyed: threads may ask for it while the program ends.
const std::string& root() {
  static const auto* const path = new std::string(findRoot());
  return *path;
}

}  // namespace jxplatform
