#include <zorplatforminfo.h>

#include <cstring>
#include <exception>
#include <string>

#include "platform/linux/support/root.h"
#include "platform/linux/support/terminal_settings.h"

namespace {

enum Result : int { kDone = 0, kUnknownItem = 1, kNotKnown = 2, kNoRoom = 3, kFailed = 4 };

Result copyOut(const std::string& text, char* buffer, unsigned long size, unsigned long* returnedLength) {
  if (text.size() > size) return kNoRoom;
  std::memcpy(buffer, text.data(), text.size());
  if (text.size() < size) buffer[text.size()] = '\0';
  *returnedLength = text.size();
  return kDone;
}

}  // namespace

extern "C" int platforminfo_get(int item, char* buffer, unsigned long size, unsigned long* returnedLength) {
  if (item != kPlatformInfoSerialNumber || buffer == nullptr || returnedLength == nullptr) return kUnknownItem;
  try {
    const auto settings = jxplatform::readTerminalSettings(jxplatform::root());
    if (!settings.serial || settings.serial->empty()) return kNotKnown;
    return copyOut(*settings.serial, buffer, size, returnedLength);
  } catch (const std::exception&) {
    return kFailed;
  }
}
