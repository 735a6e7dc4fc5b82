// Pages that return by themselves.
#pragma once

#include <optional>
#include <string>

namespace jxplatform {

// The result N that the page file `text` returns by itself: its attribute data-auto-result="N", an int, outside of
// processing instructions. None where it has no such attribute; what variables and scripts insert is never looked at.
[[nodiscard]] std::optional<int> autoResult(const std::string& text);

}  // namespace jxplatform
