#include "http/request_target.h"

#include <algorithm>
#include <cstddef>

#include "http/number_text.h"

namespace zorhtml {

namespace {

// A decoded "%" begins an escape again with the two characters behind it ("%2541" becomes "%41" and then "A"): this
// double decoding is deliberate. The decoded byte takes the place of the escape's last character, so that one walk
// does what a search from the start after each escape would do. An escape without a hexadecimal digit gives a zero
// byte. The first "%" with fewer than two characters behind it ends the decoding.
std::string decodePercent(std::string text) {
  std::string decoded;
  std::size_t at = 0;
  while (at < text.size()) {
    if (text[at] == '%' && text.size() - at > 2) {
      text[at + 2] = static_cast<char>(scanHex(text.substr(at + 1, 2)).value_or(0));
      at += 2;
    } else {
      decoded += text[at++];
    }
  }
  return decoded;
}

// Parent steps are neutralised where they stand, not resolved; "/.." at the very end stays.
void defuseParentSteps(std::string& path, std::size_t end) {
  for (std::size_t at = path.find("/../"); at < end; at = path.find("/../", at + 3)) path.replace(at + 1, 2, "__");
}

// A "//" cuts the string there, query included: deliberate; the handlers never see an empty segment or a scheme.
void cutAtDoubleSlash(std::string& path, std::size_t end) {
  const std::size_t at = path.find("//");
  if (at < end) path.erase(at);
}

}  // namespace

std::string normaliseTarget(const std::string& target) {
  std::string path = decodePercent(target);
  if (path.empty() || path.front() != '/') path.insert(path.begin(), '/');
  const std::size_t end = std::min(path.find('?'), path.size());
  std::replace(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(end), '\\', '/');
  defuseParentSteps(path, end);
  cutAtDoubleSlash(path, end);
  return path;
}

}  // namespace zorhtml
