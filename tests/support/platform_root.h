// A platform root of the test program's own.
#pragma once

#include <string>

// The folder that $JXPLATFORM_ROOT names from before the first test to the end of the program, which removes it.
const std::string& platformRoot();

// Puts `content` into the root's terminal.json, or removes it when `content` is null.
void writeTerminalJson(const char* content);
