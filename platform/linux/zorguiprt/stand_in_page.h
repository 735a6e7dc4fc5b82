// The page that stands in for one whose file cannot be read.
#pragma once

#include <string>

namespace jxplatform {

// The HTML of a page that says that `page` cannot be read, and why. One that `canBeLeft` has a button that returns 1,
// by which progress pages abort what goes on behind them, and one that returns -1.
[[nodiscard]] std::string standInPage(const std::string& page, const std::string& reason, bool canBeLeft);

}  // namespace jxplatform
