// The folder of the pages, their style sheet and script.
#pragma once

#include <string>

#include "base/descriptor.h"
#include "platform/linux/support/failure.h"

namespace jxplatform {

// $JXPLATFORM_PAGES; or the pages of the tree that the library was loaded from, be it an installed one under any prefix
// or a build folder, whose pages are the source tree's; or the folder of the configured prefix.
[[nodiscard]] std::string pagesFolder();

// Reads files below one folder. Any thread; an object may be shared.
class PageFiles {
 public:
  // Thrown where a file is missing.
  class Missing : public Failure {
   public:
    using Failure::Failure;
  };

  static constexpr std::size_t kLargestFile = std::size_t{16} << 20U;  // bytes

  explicit PageFiles(std::string folder);

  const std::string& folder() const { return folder_; }

  // The content of the regular file `path`, relative to the folder. Only what lies below the folder is found: a
  // component that is empty, begins with "." or is a symbolic link is missing, and so is what is no regular file.
  // Throws Missing, or another Failure where the file is there and cannot be read.
  [[nodiscard]] std::string read(const std::string& path) const;

 private:
  [[nodiscard]] base::Descriptor openBelow(const std::string& path) const;

  std::string folder_;
};

// The content type by the ending of `path`.
[[nodiscard]] const char* contentType(const std::string& path);

}  // namespace jxplatform
