// The folder of the pages, their style sheet and script.
#pragma once

#include <string>

namespace jxplatform {

// $JXPLATFORM_PAGES, or the source tree's pages/ where that exists, or the installed one.
std::string pagesFolder();

// Reads files below one folder. Any thread; an object may be shared.
class PageFiles {
 public:
  enum class Outcome { kRead, kMissing, kUnreadable };

  static constexpr std::size_t kLargestFile = std::size_t{16} << 20U;  // bytes

  explicit PageFiles(std::string folder);

  const std::string& folder() const { return folder_; }

  // Reads the regular file `path`, relative to the folder, into `content`; with another outcome errno says why. Only
  // what lies below the folder is found: a component that is empty, begins with "." or is a symbolic link is missing,
  // and so is what is no regular file.
  Outcome read(const std::string& path, std::string& content) const;

 private:
  int openBelow(const std::string& path) const;

  std::string folder_;
};

// The content type by the ending of `path`.
const char* contentType(const std::string& path);

}  // namespace jxplatform
