// Which of two versions of an application is the older one.
#pragma once

#include <string>

namespace jxinstall {

// Below 0 when `one` is older than `other`, 0 when neither is, above 0 when it is newer: the order that dpkg has for
// package versions. Any texts are ordered; none fails.
[[nodiscard]] int compareVersions(const std::string& one, const std::string& other);

}  // namespace jxinstall
