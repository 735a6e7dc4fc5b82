// Installation of the packages that were received, and its log as HTML.
#pragma once

#include <string>

// Runs the installer on what lies in its source directory, appends its messages to `text` as HTML, and tells the
// application controller to scan the manifests again; one installation at a time in the process. Once the program ends
// (finishInstallations) it appends an error instead and does nothing else. Any thread; blocks until an installation
// under way has ended, however long that takes.
void installPackages(std::string& text);

// The installer's log callback: appends one message to the std::string behind `data` as HTML, errors and warnings red,
// the list of applications green.
void installLogLine(void* data, const char* format, ...);

// For a program that ends: lets no further installation begin, neither one that waits for its turn nor a later one, and
// waits for the one that runs, at most 10 seconds. True when none runs any more. False when one still does: then what
// exit() would destroy is still in use, and the process has to end without it (std::_Exit); the installer leaves the
// old or the new application whole. Main thread; does not throw.
[[nodiscard]] bool finishInstallations();
