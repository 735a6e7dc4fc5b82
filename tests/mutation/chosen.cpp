// The number of the mutant that runs, from JX_MUTANT in the environment; 0, none, without it. Set before anything else
// is.
#include <cstddef>

extern "C" {
extern char** environ;
int jx_mutant = 0;
}

namespace {

__attribute__((constructor(101))) void choose() {
  static const char kName[] = "JX_MUTANT=";
  for (char** at = environ; at != nullptr && *at != nullptr; ++at) {
    std::size_t length = 0;
    while (kName[length] != '\0' && (*at)[length] == kName[length]) ++length;
    if (kName[length] != '\0') continue;
    for (const char* digit = *at + length; *digit != '\0'; ++digit) jx_mutant = jx_mutant * 10 + (*digit - '0');
  }
}

}  // namespace
