#include "cloudproxy/exchange.h"

#include <pthread.h>
#include <zorhtml.h>

#include <exception>
#include <string>
#include <utility>

#include "base/ignore.h"

namespace {

using zoripc::JSObject;

constexpr const char* kResponseNotification = "CloudProxyConfResponse";

unsigned char registered = 0;
pthread_mutex_t responseLock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t responseReady;  // initialised when `registered` becomes 1
// Null while no response is there. Never destroyed, since the library's thread may bring one while the process ends.
JSObject& response = *new JSObject();

class ResponseGuard {
 public:
  ResponseGuard() { pthread_mutex_lock(&responseLock); }
  ~ResponseGuard() { pthread_mutex_unlock(&responseLock); }
  ResponseGuard(const ResponseGuard&) = delete;
  ResponseGuard& operator=(const ResponseGuard&) = delete;
};

// False when there is nothing to store, or no memory for it.
bool storeResponse(const JSObject& message) noexcept {
  try {
    response = message;
    return !response.isNull();
  } catch (const std::exception&) {
    return false;
  }
}

// "FAIL" stands at the top level, deliberately: the requester looks for the result under "proxy", finds none there, and
// returns kRequestNoSuccess.
void storeFailure() noexcept {
  try {
    JSObject marked = response;
    marked["result"] = "FAIL";
    response = std::move(marked);
  } catch (const std::exception&) {
    return;  // the requester's deadline ends its wait
  }
}

// On the library's thread: a response, or the report that a notification of ours could not be delivered.
void onNotification(void* /*data*/, const std::string& /*sender*/, const std::string& /*receiver*/,
                    const std::string& name, const JSObject& message, unsigned /*flags*/) {
  const bool isResponse = name == kResponseNotification;
  if (!isResponse && name != kCloudProxyNotification) return;
  const ResponseGuard guard;
  if (!isResponse || !storeResponse(message)) storeFailure();
  // Until the registration is complete nobody waits, and there is nothing to signal.
  if (registered != 0) pthread_cond_signal(&responseReady);
}

// Under the lock, because a callback may run already.
void completeRegistration() {
  const ResponseGuard guard;
  registered = 1;
  pthread_condattr_t attribute;
  pthread_condattr_init(&attribute);
  pthread_condattr_setclock(&attribute, CLOCK_MONOTONIC);
  pthread_cond_init(&responseReady, &attribute);
  pthread_condattr_destroy(&attribute);
}

bool registerOnce() {
  zoripc::ipcSetAppID("jxdownloader");
  if (zoripc::ipcRegisterUnicastError(onNotification, nullptr) != 0) return false;
  if (zoripc::ipcRegisterNotificationCB(kResponseNotification, onNotification, nullptr, 0, "") != 0) {
    base::ignore(zoripc::ipcUnregisterUnicastError(onNotification, nullptr));
    return false;
  }
  completeRegistration();
  return true;
}

// Puts the response in the place of the request. The lock is held from before the sending, so that a response cannot
// come unseen between it and the wait.
int exchange(JSObject& message, int timeoutSeconds) {
  const ResponseGuard guard;
  response = JSObject();
  if (zoripc::ipcNotify(kCloudProxyId, kCloudProxyNotification, message, 0, "") != 0) return kRequestNotSent;
  const zorhtml::TimeStamp deadline = zorhtml::TimeStamp::Monotonic() + zorhtml::TimeStamp(timeoutSeconds, 0);
  while (response.isNull()) {
    if (pthread_cond_timedwait(&responseReady, &responseLock, &deadline.get()) != 0) return kRequestNoResponse;
  }
  message = response;
  return 0;
}

bool isSuccess(const JSObject& message) {
  const JSObject& result = message["proxy"]["result"];
  return result.isString() && result.getString() == "success";
}

}  // namespace

int cloudProxyRequest(JSObject& message, int timeoutSeconds) {
  if (registered == 0 && !registerOnce()) return kRequestNotSent;
  int result = 0;
  try {
    result = exchange(message, timeoutSeconds);
    if (result == 0) return isSuccess(message) ? 0 : kRequestNoSuccess;
  } catch (const std::exception&) {
    result = kRequestNoResponse;  // a response that there is no memory for is none
  }
  message = JSObject();
  return result;
}
