#include "platform/linux/services/controllerd/commands.h"

#include "base/text.h"
#include "platform/linux/services/controllerd/manifests.h"

namespace controllerd {

namespace {

constexpr std::size_t kShownBytes = 200;

// Enough of a text from outside to recognise it, as one line.
std::string excerpt(const std::string& text) {
  const std::string shown = base::printable(text.substr(0, kShownBytes));
  return text.size() > kShownBytes ? shown + "..." : shown;
}

std::vector<std::string> listManifests(const std::string& root) {
  std::vector<std::string> lines = scanManifests(root);
  lines.insert(lines.begin(), lines.empty() ? "Installed applications: none" : "Installed applications:");
  return lines;
}

}  // namespace

std::vector<std::string> answer(const std::string& root, const std::string& sender, const zoripc::JSObject& message) {
  const zoripc::JSObject& command = message["libmac_cmd"];
  if (!command.isString()) return {"Unknown message from " + excerpt(sender) + ": " + excerpt(message.dump())};
  const std::string word = command.getString();
  if (word == "libmac_scan_manifests") return listManifests(root);
  if (word == "libmac_show_desktop") return {"The desktop is shown"};
  return {"Unknown command from " + excerpt(sender) + ": " + excerpt(word)};
}

}  // namespace controllerd
