// Any text as a URL: the parts hold nothing that was not there, and a path begins with a slash.
#include "http/url.h"

#include "fuzz/input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string url(reinterpret_cast<const char*>(data), size);
  std::string scheme;
  std::string host;
  std::string path;
  std::uint16_t port = 1;
  zorhtml::parseUrl(url, scheme, host, port, path);
  require(!path.empty() && path.front() == '/');
  require(host.find('/') == std::string::npos && host.find(':') == std::string::npos);
  require(scheme.size() + host.size() + path.size() <= size + 5);
  return 0;
}
