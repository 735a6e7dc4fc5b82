// Who has a port, and who may have it.
#pragma once

#include <string>

namespace jxpush {

// " by NAME (process N)" for another process that has `device` open; empty where none can be seen.
std::string portHolder(const std::string& device);

// What to do about a missing permission: "; join the group GROUP: …", or "; it belongs to USER". Empty where nothing is
// known.
std::string permissionAdvice(const std::string& device);

}  // namespace jxpush
