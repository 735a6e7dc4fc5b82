#include "tests/support/platform_root.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

class Root {
 public:
  Root() {
    std::string pattern = (std::filesystem::temp_directory_path() / "jxroot-XXXXXX").string();
    path_ = mkdtemp(pattern.data()) == nullptr ? std::string() : pattern;
    setenv("JXPLATFORM_ROOT", path_.c_str(), 1);
  }
  ~Root() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  Root(const Root&) = delete;
  Root& operator=(const Root&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

const Root theRoot;

}  // namespace

const std::string& platformRoot() { return theRoot.path(); }

void writeTerminalJson(const char* content) {
  const std::string path = platformRoot() + "/terminal.json";
  if (content == nullptr) {
    std::filesystem::remove(path);
  } else {
    std::ofstream(path) << content;
  }
}
