// Making a package out of a folder.
#pragma once

#include "tools/jxpack/options.h"

namespace jxpack {

// Makes the package of the folder that the options ask for; prints what was left out on standard error, and the
// package's name, size and digest on standard output. Throws Problem, with no package left behind.
void makePackage(Options options);

// The same for a package that removes the application `options.removed`.
void makeRemoval(Options options);

}  // namespace jxpack
