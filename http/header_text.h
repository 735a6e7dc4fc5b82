// Small text tools of the header lines; white space and letter case are the C library's, byte by byte.
#pragma once

#include <string>
#include <vector>

namespace zorhtml {

// The words of `text`, split at runs of white space; never an empty one.
std::vector<std::string> splitWords(const std::string& text);

// `text` without the white space at both ends.
std::string trimSpace(const std::string& text);

std::string toLowerCopy(const std::string& text);

// Whether a caller's field of this key (lower-cased) is never written: the engine alone decides the framing, and a
// content encoding cannot be sent at all.
bool isFramingKey(const std::string& lowerKey);

}  // namespace zorhtml
