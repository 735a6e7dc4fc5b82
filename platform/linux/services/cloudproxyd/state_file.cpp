#include "platform/linux/services/cloudproxyd/state_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zoripc.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "platform/linux/support/regular_file.h"

namespace cloudproxyd {

namespace {

using zoripc::JSObject;

// Far above what is ever written; a wrong file must not fill the memory.
constexpr std::size_t kMaxBytes = 65536;
constexpr const char* kForeignContent = "its content is not that of a settings file";

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

std::string errorText() { return std::strerror(errno); }

// Why the file is none to read or to replace, by errno.
std::string objection() {
  if (errno == EFBIG) return kForeignContent;
  return errno == EINVAL ? "it is not a regular file" : errorText();
}

// True when `object` lacks the member or has it as an integer from 0 to `most`.
bool takeInteger(const JSObject& object, const char* name, int most, int& value) {
  if (!object.has(name)) return true;
  const JSObject& member = object[name];
  if (!member.isInt() || member.getDouble() < 0 || member.getDouble() > most) return false;
  value = member.getInt();
  return true;
}

bool takeSettings(const JSObject& object, Settings& settings) {
  int authEx = settings.authEx ? 1 : 0;
  if (!object.isObject() || !takeInteger(object, "loglevel", kMaxLogLevel, settings.logLevel) ||
      !takeInteger(object, "auth_ex", 1, authEx)) {
    return false;
  }
  settings.authEx = authEx != 0;
  if (!object.has("cloud_env")) return true;
  settings.environment = object["cloud_env"].getString();
  return object["cloud_env"].isString();
}

// False with errno set.
bool syncDirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool synced = fsync(fd) == 0;
  const int error = errno;
  close(fd);
  errno = error;
  return synced;
}

// Whether `path` may be replaced: it is a regular file, or nothing. False with errno set.
bool isReplaceable(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return errno == ENOENT;
  errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  return S_ISREG(status.st_mode);
}

// Writes `text` to a new file in the place of whatever is there: a link of that name is not followed, a FIFO not waited
// for. False with errno set.
bool writeNew(const std::string& path, const std::string& text) {
  constexpr mode_t kMode = 0644;
  if (unlink(path.c_str()) != 0 && errno != ENOENT) return false;
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode);
  const File file(fd < 0 ? nullptr : fdopen(fd, "w"));
  if (fd >= 0 && !file) close(fd);
  return file && std::fwrite(text.data(), 1, text.size(), file.get()) == text.size() && std::fflush(file.get()) == 0 &&
         fsync(fd) == 0;
}

}  // namespace

std::string loadSettings(const std::string& path, Settings& settings) {
  std::string text;
  if (!jxplatform::readRegularFile(path, kMaxBytes, text)) return errno == ENOENT ? "" : objection();
  JSObject object;
  Settings read = settings;
  if (!JSObject::parse(text, object) || !takeSettings(object, read)) return kForeignContent;
  settings = read;
  return "";
}

std::string saveSettings(const std::string& path, const Settings& settings) {
  JSObject object = JSObject::object();
  object["loglevel"] = settings.logLevel;
  object["cloud_env"] = settings.environment;
  object["auth_ex"] = settings.authEx ? 1 : 0;
  const std::string fresh = path + ".new";
  if (!isReplaceable(path)) return objection();
  if (!writeNew(fresh, object.dump() + "\n") || std::rename(fresh.c_str(), path.c_str()) != 0) {
    std::string reason = errorText();
    unlink(fresh.c_str());
    return reason;
  }
  if (!syncDirectoryOf(path)) {
    std::fprintf(stderr, "cloudproxyd: %s: a power failure may bring the old settings back: %s\n", path.c_str(),
                 errorText().c_str());
  }
  return "";
}

}  // namespace cloudproxyd
