// Any text as the payload of a notification: what is JSON reads back as it was written, and the applications that
// receive it, this program's exchange with the cloud proxy among them, take every shape of it. The bus is left out: the
// answer to a request is there when the request waits for it.
#include <zorguiprt.h>

#include <cerrno>
#include <map>

#include "base/ignore.h"
#include "cloudproxy/log_level.h"
#include "cloudproxy/proxy_info.h"
#include "cloudproxy/proxy_settings.h"
#include "fuzz/input.h"
#include "platform/linux/services/cloudproxyd/service.h"
#include "platform/linux/services/controllerd/commands.h"

namespace {

using zoripc::JSObject;

zoripc::NotificationCallback callback = nullptr;
JSObject response;  // the next answer
std::size_t answersLeft = 0;

void checkText(const JSObject& value) {
  const std::string text = value.dump();
  JSObject again;
  require(JSObject::parse(text, again) && again.dump() == text);
  JSObject copy(value);
  copy["added"] = again;
  copy.append(value);
  require(copy.at(0).dump() == text && value.dump() == text);
}

void askTheProxy(const JSObject& value) {
  response = value;
  ProxySettings settings;
  answersLeft = 2;
  base::ignore(readProxySettings(settings));
  JSObject list;
  if (!settings.cloud_env_list.empty()) require(JSObject::parse(settings.cloud_env_list, list) && list.isArray());
  ProxyInfo info;
  answersLeft = 1;
  base::ignore(readProxyInfo(info));
  answersLeft = 1;
  const int level = readLogLevel();
  require(level <= 0 || value["proxy"]["loglevel"].getInt() == level);
}

void tellTheServices(const JSObject& value) {
  for (const std::string& line : controllerd::answer("/nonexistent", "fuzz", value)) require(line.size() < 1000);
  cloudproxyd::ServiceOptions options;
  options.environments = cloudproxyd::usualEnvironments("prod");
  int replies = 0;
  cloudproxyd::Service service(
      options, cloudproxyd::initialSettings(options.environments),
      [](const cloudproxyd::GatewayChecker::Done&) { return false; },
      [](const cloudproxyd::Settings&) { return std::string(); }, [](const std::string&) {});
  service.take(value, [&replies](const JSObject& reply) {
    ++replies;
    require(reply["proxy"]["result"].isString());
  });
  require(replies <= 1);
}

}  // namespace

// In place of the library's.
namespace zoripc {

void ipcSetAppID(const char* /*id*/) {}

int ipcNotify(const char* /*receiver*/, const char* /*name*/, const JSObject& message, unsigned /*flags*/,
              const char* /*sender*/) {
  return message.isObject() ? 0 : -1;
}

int ipcRegisterNotificationCB(const char* /*name*/, NotificationCallback callback, void* /*data*/, unsigned /*flags*/,
                              const char* /*sender*/) {
  ::callback = callback;
  return 0;
}

int ipcRegisterUnicastError(NotificationCallback /*callback*/, void* /*data*/) { return 0; }
int ipcUnregisterUnicastError(NotificationCallback /*callback*/, void* /*data*/) { return 0; }

}  // namespace zoripc

namespace zorgui {

int uiInvokeURL(int /*region*/, int /*flags*/, std::map<std::string, std::string>& /*vars*/,
                const std::string& /*page*/, UICallback /*callback*/, void* /*data*/) {
  return -1;
}

void uiInvokeURLAsync(int /*region*/, int /*flags*/, const std::map<std::string, std::string>& /*vars*/,
                      const std::string& /*page*/, UIAsyncCallback /*callback*/, void* /*data*/) {}

}  // namespace zorgui

// The linker sends the exchange's waiting here (--wrap).
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming): the name is its convention
extern "C" int __wrap_pthread_cond_timedwait(pthread_cond_t* /*condition*/, pthread_mutex_t* mutex,
                                             const timespec* /*end*/) {
  if (answersLeft == 0) return ETIMEDOUT;
  --answersLeft;
  pthread_mutex_unlock(mutex);
  callback(nullptr, "1", "jxdownloader", "CloudProxyConfResponse", response, 0);
  pthread_mutex_lock(mutex);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  JSObject value;
  if (!JSObject::parse(std::string(reinterpret_cast<const char*>(data), size), value)) {
    require(value.isNull());
    return 0;
  }
  checkText(value);
  askTheProxy(value);
  tellTheServices(value);
  return 0;
}
