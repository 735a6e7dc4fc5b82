// From the target of a request line to the path that the handlers see.
#pragma once

#include <string>

namespace zorhtml {

// Decodes percent escapes, gives a missing leading "/", turns backslashes into slashes, defuses "/../" and cuts at
// "//"; the last three only before the first "?". The query stays behind it, decoded. Linear in the length.
std::string normaliseTarget(const std::string& target);

}  // namespace zorhtml
