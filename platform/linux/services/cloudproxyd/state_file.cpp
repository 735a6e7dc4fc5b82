#include "platform/linux/services/cloudproxyd/state_file.h"

#include <sys/stat.h>
#include <zoripc.h>

#include <cerrno>
#include <cstdio>

#include "base/atomic_file.h"
#include "base/file_io.h"
#include "base/regular_file.h"
#include "platform/linux/support/failure.h"

namespace cloudproxyd {

namespace {

using jxplatform::Failure;
using zoripc::JSObject;

// Far above what is ever written; a wrong file must not fill the memory.
constexpr std::size_t kMaxBytes = 65536;
constexpr mode_t kMode = 0644;
constexpr const char* kForeignContent = "its content is not that of a settings file";

// Throws why the file is none to read or to replace, by errno.
[[noreturn]] void object() {
  if (errno == EFBIG) throw Failure(kForeignContent);
  throw Failure(errno == EINVAL ? "it is not a regular file" : base::errorText(errno));
}

// The member, which is an integer from 0 to `most`, or `otherwise` where `object` lacks it.
int integerOf(const JSObject& object, const char* name, int most, int otherwise) {
  if (!object.has(name)) return otherwise;
  const JSObject& member = object[name];
  if (!member.isInt() || member.getDouble() < 0 || member.getDouble() > most) throw Failure(kForeignContent);
  return member.getInt();
}

Settings settingsOf(const JSObject& object, Settings settings) {
  if (!object.isObject()) throw Failure(kForeignContent);
  settings.logLevel = integerOf(object, "loglevel", kMaxLogLevel, settings.logLevel);
  settings.authEx = integerOf(object, "auth_ex", 1, settings.authEx ? 1 : 0) != 0;
  if (!object.has("cloud_env")) return settings;
  if (!object["cloud_env"].isString()) throw Failure(kForeignContent);
  settings.environment = object["cloud_env"].getString();
  return settings;
}

// Only a regular file is replaced, or nothing.
void checkReplaceable(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    if (errno != ENOENT) object();
  } else if (!S_ISREG(status.st_mode)) {
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    object();
  }
}

}  // namespace

Settings loadSettings(const std::string& path, const Settings& otherwise) {
  std::string text;
  if (!base::readRegularFile(path, kMaxBytes, text)) {
    if (errno == ENOENT) return otherwise;
    object();
  }
  JSObject content;
  if (!JSObject::parse(text, content)) throw Failure(kForeignContent);
  return settingsOf(content, otherwise);
}

void saveSettings(const std::string& path, const Settings& settings) {
  JSObject content = JSObject::object();
  content["loglevel"] = settings.logLevel;
  content["cloud_env"] = settings.environment;
  content["auth_ex"] = settings.authEx ? 1 : 0;
  checkReplaceable(path);
  if (!base::replaceFile(path, content.dump() + "\n", base::Flush::kYes, ".new", kMode)) {
    throw Failure(base::errorText(errno));
  }
  if (!base::syncFolderOf(path)) {
    std::fprintf(stderr, "cloudproxyd: %s: a power failure may bring the old settings back: %s\n", path.c_str(),
                 base::errorText(errno).c_str());
  }
}

}  // namespace cloudproxyd
