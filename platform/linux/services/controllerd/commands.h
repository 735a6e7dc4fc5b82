// What the controller does when it is told something.
#pragma once

#include <zoripc.h>

#include <string>
#include <vector>

namespace controllerd {

// The lines that answer the notification "_mac_control_trigger" with `message`, sent by the application `sender`:
// libmac_scan_manifests lists the applications below `root`, libmac_show_desktop says so; anything else is named as
// unknown. Never empty; one line an element, in printable ASCII.
[[nodiscard]] std::vector<std::string> answer(const std::string& root, const std::string& sender,
                                              const zoripc::JSObject& message);

}  // namespace controllerd
