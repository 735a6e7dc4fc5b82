// Looking at packages that are made.
#pragma once

#include <string>

namespace jxpack {

// Prints what is in the package `path`: its size and digest, the facts of its manifest, and each file with its size.
// Throws Problem: exit code 3 when it cannot be read, 1 when the installer would refuse it.
void showPackage(const std::string& path);

// Checks the package `path` as the installer does before it touches the disk, every file's digest too, and prints what
// it is; where `certs` is not empty, its signature too, by the certificates and lists in that folder. Throws Problem:
// exit code 3 when something cannot be read, 1 when the installer would refuse it where signatures are required.
void verifyPackage(const std::string& path, const std::string& certs);

}  // namespace jxpack
