#include "platform/linux/services/cloudproxyd/state_file.h"

#include <sys/stat.h>
#include <zoripc.h>

#include <cerrno>
#include <cstdio>

#include "base/atomic_file.h"
#include "base/file_io.h"
#include "base/regular_file.h"

namespace cloudproxyd {

namespace {

using zoripc::JSObject;

// Far above what is ever written; a wrong file must not fill the memory.
constexpr std::size_t kMaxBytes = 65536;
constexpr mode_t kMode = 0644;
constexpr const char* kForeignContent = "its content is not that of a settings file";

// Why the file is none to read or to replace, by errno.
std::string objection() {
  if (errno == EFBIG) return kForeignContent;
  return errno == EINVAL ? "it is not a regular file" : base::errorText(errno);
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

// Whether `path` may be replaced: it is a regular file, or nothing. False with errno set.
bool isReplaceable(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return errno == ENOENT;
  errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  return S_ISREG(status.st_mode);
}

}  // namespace

std::string loadSettings(const std::string& path, Settings& settings) {
  std::string text;
  if (!base::readRegularFile(path, kMaxBytes, text)) return errno == ENOENT ? "" : objection();
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
  if (!isReplaceable(path)) return objection();
  if (!base::replaceFile(path, object.dump() + "\n", base::Flush::kYes, ".new", kMode)) return base::errorText(errno);
  if (!base::syncFolderOf(path)) {
    std::fprintf(stderr, "cloudproxyd: %s: a power failure may bring the old settings back: %s\n", path.c_str(),
                 base::errorText(errno).c_str());
  }
  return "";
}

}  // namespace cloudproxyd
