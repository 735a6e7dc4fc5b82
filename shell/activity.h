// How an activity that fails ends: the same for all of them.
#pragma once

#include <functional>

// Runs `activity`, which a menu's entry stands for. One that ends by an exception, for want of memory, is shown on the
// result page, as far as there is memory for that; the caller then shows the menu again that it came from. Main thread;
// blocks; does not throw.
void runActivity(const std::function<void()>& activity);
