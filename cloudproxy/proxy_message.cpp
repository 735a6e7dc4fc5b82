#include "cloudproxy/proxy_message.h"

zoripc::JSObject proxyRequest(const char* command) {
  zoripc::JSObject message = zoripc::JSObject::object();
  message["proxy"]["command"] = command;
  return message;
}

bool isNumeric(const zoripc::JSObject& value) { return value.isInt() || value.isDouble(); }
