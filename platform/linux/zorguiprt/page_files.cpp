#include "platform/linux/zorguiprt/page_files.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/file_io.h"
#include "base/regular_file.h"
#include "base/text.h"
#include "platform/linux/support/environment.h"

namespace jxplatform {
namespace {

constexpr int kLevelsAbove = 4;  // prefix/lib/ARCHITECTURE/jxdownloader/libzorguiprt.so

bool isFolder(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Where this library's file lies, with no link in the path; empty when that is not known.
std::string ownFile() {
  static const char inThisLibrary = 0;
  Dl_info info{};
  if (dladdr(&inThisLibrary, &info) == 0 || info.dli_fname == nullptr) return "";
  char* const path = realpath(info.dli_fname, nullptr);
  std::string result = path != nullptr ? path : "";
  std::free(path);
  return result;
}

// The pages of the tree that this library is a part of: lib/ or a folder in it is beside share/. Empty without one.
std::string pagesBeside(std::string folder) {
  for (int level = 0; level < kLevelsAbove; ++level) {
    const std::size_t slash = folder.rfind('/');
    if (slash == std::string::npos) break;
    folder.resize(slash);
    std::string pages = folder + "/" JX_PAGES;
    if (isFolder(pages)) return pages;
  }
  return "";
}

bool isPlainName(const std::string& component) {
  return !component.empty() && component[0] != '.' && component.find('\0') == std::string::npos;
}

bool isMissing(int reason) {
  return reason == ENOENT || reason == ENOTDIR || reason == ELOOP || reason == ENAMETOOLONG;
}

[[noreturn]] void fail(int reason) {
  if (isMissing(reason)) throw PageFiles::Missing(base::errorText(reason));
  throw Failure(base::errorText(reason));
}

}  // namespace

std::string pagesFolder() {
  std::string configured = environment("JXPLATFORM_PAGES");
  if (!configured.empty()) return configured;
  const std::string beside = pagesBeside(ownFile());
  return beside.empty() ? JX_PAGES_INSTALLED : beside;
}

PageFiles::PageFiles(std::string folder) : folder_(std::move(folder)) {}

// Opened component by component, following no link: a link, or a folder swapped for one meanwhile, leads nowhere.
base::Descriptor PageFiles::openBelow(const std::string& path) const {
  base::Descriptor folder(open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::size_t begin = 0;
  while (folder) {
    const std::size_t slash = path.find('/', begin);
    const std::string component = path.substr(begin, slash == std::string::npos ? slash : slash - begin);
    if (!isPlainName(component)) {
      errno = ENOENT;
      return {};
    }
    const int kind = slash == std::string::npos ? O_NONBLOCK : O_DIRECTORY;  // a pipe must not block
    folder = base::Descriptor(openat(folder.get(), component.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | kind));
    if (slash == std::string::npos) break;
    begin = slash + 1;
  }
  return folder;
}

std::string PageFiles::read(const std::string& path) const {
  std::string content;
  const base::Descriptor file = openBelow(path);
  if (!file) fail(errno);
  if (base::readRegularFile(file.get(), kLargestFile, content)) return content;
  if (errno == EISDIR) throw Missing(base::errorText(EISDIR));
  fail(errno == EINVAL ? ENOENT : errno);  // a device or a pipe is no page
}

const char* contentType(const std::string& path) {
  static constexpr struct {
    const char* ending;
    const char* type;
  } kTypes[] = {
      {".css", "text/css; charset=utf-8"},
      {".gif", "image/gif"},
      {".html", "text/html; charset=utf-8"},
      {".ico", "image/vnd.microsoft.icon"},
      {".jpeg", "image/jpeg"},
      {".jpg", "image/jpeg"},
      {".js", "text/javascript; charset=utf-8"},
      {".json", "application/json"},
      {".mjs", "text/javascript; charset=utf-8"},
      {".png", "image/png"},
      {".svg", "image/svg+xml"},
      {".txt", "text/plain; charset=utf-8"},
      {".webp", "image/webp"},
      {".woff2", "font/woff2"},
  };
  for (const auto& known : kTypes) {
    const std::size_t size = std::strlen(known.ending);
    if (path.size() > size && base::endsWith(path, known.ending)) return known.type;
  }
  return "application/octet-stream";
}

}  // namespace jxplatform
