// For what is kept for the life of a process: each test gets a process of its own.
#pragma once

#include <functional>
#include <string>

// Runs `work` in a child process and returns what it returned there. Only while no other thread runs.
std::string inChild(const std::function<std::string()>& work);

// In such a child: ends it at once, with `result` as what its work has returned.
[[noreturn]] void endChild(const std::string& result);
