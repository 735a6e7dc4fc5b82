// Where the Linux port keeps everything.
#pragma once

#include <string>

namespace jxplatform {

// $JXPLATFORM_ROOT, or /var/lib/jxplatform; without a slash at its end. Created with its parents on first use, mode
// 0755; a failure shows when a file below it is opened. Any thread.
const std::string& root();

}  // namespace jxplatform
