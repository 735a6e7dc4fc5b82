#include "shell/controller.h"

#include <zoripc.h>

#include <exception>

#include "base/ignore.h"

void notifyController(const char* command) {
  try {
    zoripc::JSObject message = zoripc::JSObject::object();
    message["libmac_cmd"] = command;
    message["libmac_version"] = "3.16.5-79";
    base::ignore(zoripc::ipcNotify("_mac", "_mac_control_trigger", message, 0, "jxdownloader"));
  } catch (const std::exception&) {
    return;  // a notification that cannot be made is as good as one that is not delivered
  }
}
