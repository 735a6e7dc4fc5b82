// Text from a package, made fit for a message.
#pragma once

#include <string>

namespace jxinstall {

// `text` in double quotes, with every byte that is not printable ASCII, and every double quote, replaced by "?", and
// cut after 100 bytes with "..." in place of the rest.
std::string printable(const std::string& text);

}  // namespace jxinstall
