// The terminal's installer library (libjxapp).
#pragma once

#include <string>

namespace jxapp {

// No function here throws.

// Receives one progress message of the installer, printf-style. Called on the thread that called jxInstall; must not
// throw.
using InstallLog = void (*)(void* data, const char* format, ...);

// Installs every archive `upload-N.zip` of the source directory in the order of N and removes it from there, telling
// `log` of each and, at the end, of the applications that are installed. Lines end in a line feed and begin with
// "Error:" or "Warning:" when they are one. Returns 0 when nothing failed; the messages are the report. Blocks. One
// call at a time.
int jxInstall(InstallLog log, void* data);

// The directory in which archives to be installed are placed; without a slash at its end; owned by the library. Never
// null: when there is no memory to tell it, this call gives a path below which no file can be made.
const char* jxInstallSourceDir();

// Creates that directory where it is missing. True when it is there.
bool jxInstallCreateSourceDir();

// Fills `archive` with a tar archive of the terminal's certificates. True on success; otherwise `archive` may hold a
// part.
bool jxGetCertificateArchive(std::string& archive);

}  // namespace jxapp
