// The notification functions of zoripc.h.
#include <zoripc.h>

#include <cerrno>
#include <cstdlib>
#include <exception>

#include "platform/linux/zoripc/bus.h"
#include "platform/linux/zoripc/mailbox.h"

namespace zoripc {

namespace {

// How long the end of the process waits for each of the library's threads.
constexpr int kEndMs = 2000;

struct Library {
  Mailbox mailbox;
  Bus bus{mailbox};
};

// Never destroyed, since other threads may be in it when the process ends; but its own threads end before the data of
// the program that their callbacks use.
Library& library() {
  static auto* const instance = new Library();
  static const struct Ending {
    ~Ending() {
      instance->bus.close(kEndMs);
      instance->mailbox.close(kEndMs);
    }
  } ending;
  return *instance;
}

std::string textOf(const char* text) { return text == nullptr ? "" : text; }

// Runs `action`, which returns a result; what it throws becomes one too.
template <class Action>
int guarded(Action action) {
  try {
    return action();
  } catch (const std::exception&) {
    return -ENOMEM;
  }
}

}  // namespace

void ipcSetAppID(const char* id) {
  const int result = guarded([&] { return library().bus.setId(textOf(id)) ? 0 : -EEXIST; });
  if (result == -EEXIST) std::exit(1);
}

int ipcNotify(const char* receiver, const char* name, const JSObject& message, unsigned flags, const char* sender) {
  return guarded([&] { return library().bus.send({textOf(sender), textOf(receiver), textOf(name), message, flags}); });
}

int ipcRegisterNotificationCB(const char* name, NotificationCallback callback, void* data, unsigned /*flags*/,
                              const char* sender) {
  if (name == nullptr || callback == nullptr) return -EINVAL;
  return guarded([&] {
    library().mailbox.want(name, textOf(sender), callback, data);
    return 0;
  });
}

int ipcRegisterUnicastError(NotificationCallback callback, void* data) {
  if (callback == nullptr) return -EINVAL;
  return guarded([&] {
    library().mailbox.wantFailures(callback, data);
    return 0;
  });
}

int ipcUnregisterUnicastError(NotificationCallback callback, void* data) {
  return guarded([&] { return library().mailbox.unwantFailures(callback, data) ? 0 : -ENOENT; });
}

}  // namespace zoripc
