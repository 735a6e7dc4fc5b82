// Text from outside on the user's terminal: file names, targets, what a terminal answers.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace jxpush {

// `text` with "?" for whatever a terminal may obey or cannot show: control characters of both sets, characters that
// turn the writing direction or show nothing, bytes that are no UTF-8. With `ascii`, for a terminal that knows no
// UTF-8, for every other character beyond ASCII too.
[[nodiscard]] std::string displayText(std::string_view text, bool ascii = false);

// The same, as `stream` can take it: ASCII where it is a terminal of another character set than UTF-8.
[[nodiscard]] std::string displayText(std::string_view text, std::FILE* stream);

// How many columns `text`, from displayText(), takes: two for a wide character, none for a combining one.
[[nodiscard]] std::size_t columnsOf(std::string_view text);

// The beginning of `text`, from displayText(), that fits into `columns`; characters stay whole.
[[nodiscard]] std::string cutToColumns(std::string_view text, std::size_t columns);

// Of the terminal that `stream` is; 80 where it is none or does not tell.
[[nodiscard]] std::size_t columnsOfTerminal(std::FILE* stream);

// Whether `stream` is a terminal that is written over and coloured: TERM is not "dumb".
[[nodiscard]] bool isLively(std::FILE* stream);

// Whether `stream` gets colours: a lively terminal, and NO_COLOR is not set.
[[nodiscard]] bool getsColours(std::FILE* stream);

}  // namespace jxpush
