// What the requests to the cloud proxy have in common.
#pragma once

#include <zoripc.h>

// The longest wait for every response but that of a cloud check.
constexpr int kProxyTimeoutSeconds = 5;

// A request {"proxy": {"command": `command`}}, to which the command's own members are added.
[[nodiscard]] zoripc::JSObject proxyRequest(const char* command);

// True for both numeric kinds.
[[nodiscard]] bool isNumeric(const zoripc::JSObject& value);
