// The one way to leave a result on purpose.
#pragma once

namespace base {

// Drops a result that must otherwise be looked at. A comment beside the call says why it does not matter there.
template <typename Result>
constexpr void ignore(const Result& /*result*/) {}

}  // namespace base
