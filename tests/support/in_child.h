// For what is kept for the life of a process: each test gets a process of its own.
#pragma once

#include <functional>
#include <string>

// Runs `work` in a child process and returns what it returned there. Only while no other thread runs.
std::string inChild(const std::function<std::string()>& work);
