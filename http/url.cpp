#include "http/url.h"

#include <cstddef>

#include "http/number_text.h"

namespace zorhtml {

void parseUrl(const std::string& url, std::string& scheme, std::string& host, std::uint16_t& port, std::string& path) {
  const std::size_t mark = url.find("://");
  const std::size_t start = mark == std::string::npos ? 0 : mark + 3;
  const std::size_t slash = url.find('/', start);
  scheme = mark == std::string::npos ? "http" : url.substr(0, mark);
  host = url.substr(start, slash == std::string::npos ? slash : slash - start);
  path = slash == std::string::npos ? "/" : url.substr(slash);
  port = 0;
  const std::size_t colon = host.find(':');
  if (colon == std::string::npos) return;
  // Above 65535 the upper bits are dropped, as "%hu" does.
  port = static_cast<std::uint16_t>(scanUnsigned(host.substr(colon + 1)).value_or(0));
  host.erase(colon);
}

}  // namespace zorhtml
