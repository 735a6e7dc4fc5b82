#include <zorguiprt.h>

#include <optional>

#include "platform/linux/support/root.h"
#include "platform/linux/support/terminal_settings.h"

namespace zorgui {

const char* gui_GetSvcVersion() {
  // Read once: the caller may keep the text.
  static const std::optional<std::string> version = jxplatform::readTerminalSettings(jxplatform::root()).guiVersion;
  return version ? version->c_str() : nullptr;
}

}  // namespace zorgui
