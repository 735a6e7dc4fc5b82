// The screen's requests and answers as text: the one place that knows their form.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/linux/zorguiprt/page.h"

namespace jxplatform {

// The largest number a browser's script holds exactly; ids stay below it.
constexpr std::uint64_t kLargestId = (std::uint64_t{1} << 53U) - 1;

// {"id":…,"page":…,"sync":…,"vars":{…},"html":…}; bytes that are not UTF-8 become U+FFFD.
[[nodiscard]] std::string screenJson(std::uint64_t id, bool synchronous, const PageContent& content);

// Reads {"result":INTEGER,"vars":{NAME:TEXT or null,…}}, "vars" being optional. Throws Failure, with the reason
// for whoever wrote it, for anything else: other members, an integer that an int of 32 bits does not hold, a value of
// another kind.
[[nodiscard]] PageResult parseResult(const std::string& body);

// Reads a decimal number from 0 to kLargestId, digits only; nothing when `text` is none.
[[nodiscard]] std::optional<std::uint64_t> parseNumber(const std::string& text);

}  // namespace jxplatform
