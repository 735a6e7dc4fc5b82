// The user's wish to stop, as something that can be polled.
#pragma once

namespace jxpush {

// From now on the first SIGINT, SIGTERM or SIGHUP makes the returned descriptor readable for good; a second one ends
// the program at once. A SIGHUP that is ignored stays ignored. Once per program. Throws Problem(kGaveUp) where the
// system has no descriptor left.
[[nodiscard]] int catchStopSignals();

// Whether `stopFd`, from catchStopSignals(), is readable. Does not wait.
[[nodiscard]] bool stopAsked(int stopFd);

// The same within `timeoutMs` milliseconds, -1: without a limit. Blocks until then; `stopFd` may be -1, never readable.
[[nodiscard]] bool stopAskedWithin(int stopFd, int timeoutMs);

}  // namespace jxpush
