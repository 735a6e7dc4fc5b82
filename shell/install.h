// Installation of the packages that were received, and its log as HTML.
#pragma once

#include <pthread.h>

#include <string>

// Held for the whole of one installation and its notification; one installation at a time in the process.
extern pthread_mutex_t installLock;

// Runs the installer on what lies in its source directory, appends its messages to `text` as HTML, and tells the
// application controller to scan the manifests again. Any thread; blocks until an installation under way has ended.
void installPackages(std::string& text);

// The installer's log callback: appends one message to the std::string behind `data` as HTML, errors and warnings red,
// the list of applications green.
void installLogLine(void* data, const char* format, ...);
