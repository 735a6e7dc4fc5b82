// Files of a line or two.
#pragma once

#include <string>

namespace jxplatform {

// Puts `content` into the file `path` in one step: a reader sees the old content or the new. False with errno when it
// cannot; nothing is left behind then.
bool replaceFile(const std::string& path, const std::string& content);

}  // namespace jxplatform
