#include "upload/make_parent_dirs.h"

#include <sys/stat.h>

#include <cstddef>

bool makeParentDirs(const std::string& path) {
  constexpr mode_t kMode = 0777;
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return true;
  const std::string directory = path.substr(0, slash);
  struct stat status {};
  if (stat(directory.c_str(), &status) == 0) return true;  // whatever it is: opening the file tells
  return makeParentDirs(directory) && mkdir(directory.c_str(), kMode) == 0;
}
