// Where the Linux port keeps everything.
#pragma once

#include <string>

namespace jxplatform {

// $JXPLATFORM_ROOT, or /var/lib/jxplatform; without a slash at its end, and at most 100 bytes long: a longer one is
// told on standard error and ends the process with status 1. Created with its parents on first use, mode 0755; a
// failure shows when a file below it is opened. Any thread; each program asks first from its main thread, before it
// does anything else.
const std::string& root();

}  // namespace jxplatform
