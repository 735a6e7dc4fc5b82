#include "platform/linux/zoripc/notification_object.h"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstdint>
#include <exception>
#include <utility>

namespace zoripc {

namespace {

int take(sd_bus_message* call, Recipient& recipient, sd_bus_error* error) {
  const char* name = nullptr;
  const char* json = nullptr;
  const char* sender = nullptr;
  std::uint32_t flags = 0;
  const int result = sd_bus_message_read(call, kNotifySignature, &name, &json, &flags, &sender);
  if (result < 0) return result;
  Notification notification{sender, recipient.id, name, JSObject(), flags};
  if (!JSObject::parse(json, notification.message)) {
    return sd_bus_error_setf(error, SD_BUS_ERROR_INVALID_ARGS, "The payload of %s is not JSON", name);
  }
  if (!recipient.mailbox.wants(name, sender)) {
    return sd_bus_error_setf(error, "zoripc.Error.NotExpected", "Nobody here has registered for %s", name);
  }
  if (!recipient.mailbox.post(std::move(notification))) {
    return sd_bus_error_set(error, SD_BUS_ERROR_LIMITS_EXCEEDED, "Too many notifications are waiting");
  }
  return sd_bus_reply_method_return(call, "");
}

int onNotify(sd_bus_message* call, void* userData, sd_bus_error* error) {
  try {
    return take(call, *static_cast<Recipient*>(userData), error);
  } catch (const std::exception&) {
    return -ENOMEM;
  }
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"  // the macros use C's designated initialisers
const sd_bus_vtable kMethods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD(kNotifyMethod, kNotifySignature, "", onNotify, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};
#pragma GCC diagnostic pop

}  // namespace

int addNotificationObject(sd_bus* bus, Recipient* recipient) {
  return sd_bus_add_object_vtable(bus, nullptr, kNotificationPath, kNotificationInterface, kMethods, recipient);
}

}  // namespace zoripc
