// The object that receives notifications on the bus.
#pragma once

#include "platform/linux/zoripc/mailbox.h"

struct sd_bus;

namespace zoripc {

constexpr const char* kNotificationPath = "/zoripc";
constexpr const char* kNotificationInterface = "zoripc.Notification1";
constexpr const char* kNotifyMethod = "Notify";
constexpr const char* kNotifySignature = "ssus";

// Offers the object on `bus`: Notify(name, payload as JSON text, flags, sender's id) puts a notification for the
// application that owns the destination into `recipient.mailbox` and answers with nothing. A payload that is not JSON,
// a name that nobody has registered and a mailbox that is full are error replies. Negative on failure. `recipient` must
// outlive the bus.
struct Recipient {
  Mailbox& mailbox;
  const std::string& id;  // read while the bus is processed
};
[[nodiscard]] int addNotificationObject(sd_bus* bus, Recipient* recipient);

}  // namespace zoripc
