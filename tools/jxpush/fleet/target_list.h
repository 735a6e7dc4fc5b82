// Which terminals are sent to.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/jxpush/common/options.h"

namespace jxpush {

struct NamedTarget {
  std::string address;  // the full form of what the user typed
  std::string key;      // the same for two addresses of one terminal
  std::string name;     // for messages; what the user typed unless there is a name behind it
  bool serial = false;  // at a line of its own
};

// Makes a target of what the user typed, which is its name, or throws Problem(kUsage) with a message that
// begins with that.
using ReadTarget = std::function<NamedTarget(const std::string&)>;

// The targets of --to and, behind them, of the list. A line of it is empty or has a target, a blank and a name; the
// name may be missing; "#" at the beginning or behind a blank begins a comment. Throws Problem: kUsage for a target
// that is none, a terminal that comes twice, or a list without a target, with "LIST:LINE: " in front where a line is at
// fault; kInput when the list cannot be read. Blocks on the list alone.
[[nodiscard]] std::vector<NamedTarget> collectTargets(const Options& options, const ReadTarget& read);

}  // namespace jxpush
