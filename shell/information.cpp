#include "shell/information.h"

#include <zorguiprt.h>
#include <zorplatforminfo.h>

#include <array>
#include <string>

#include "shell/pages.h"
#include "shell/sponsor.h"

namespace {

constexpr const char* kUnknown = "unknown";

std::string uiVersion() {
  const char* const version = zorgui::gui_GetSvcVersion();
  return version != nullptr ? version : kUnknown;
}

std::string sponsorId() {
  const Sponsor sponsor = lookUpSponsor();
  return sponsor.number.empty() ? kUnknown : sponsor.number;
}

std::string serialNumber() {
  constexpr unsigned long kAskedSize = 17;  // less than the buffer, so that a zero byte always ends the text
  std::array<char, 20> buffer{};
  unsigned long length = 0;
  if (platforminfo_get(kPlatformInfoSerialNumber, buffer.data(), kAskedSize, &length) != 0) buffer.fill('\0');
  return buffer[0] != '\0' ? buffer.data() : kUnknown;
}

}  // namespace

void runInformationPage() {
  PageVars vars;
  vars["uiVersion"] = uiVersion();
  vars["sponsorId"] = sponsorId();
  vars["serialNo"] = serialNumber();
  while (showPage(vars, "info.html") != kPageLeft) {
  }
}
