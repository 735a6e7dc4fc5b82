// For what is kept for the life of a process.
#pragma once

#include <functional>

// Runs `work` in a child process; its failed expectations, and what a sanitizer finds at its end, fail the test. Only
// while no other thread runs.
void inOwnProcess(const std::function<void()>& work);
