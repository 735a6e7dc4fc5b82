#include "shell/menu.h"

#include <exception>

#include "shell/controller.h"
#include "shell/pages.h"

namespace {

int showMainMenu(ProxyEntry offered) {
  PageVars vars;
  vars["show_settings"] = offered == ProxyEntry::kLogLevel ? "1" : "0";
  vars["show_cloudproxy"] = offered == ProxyEntry::kCloudProxy ? "1" : "0";
  return showPage(vars, "mainmenu.html");
}

// Where not even this page can be shown, the menu is the answer.
void showFailure() {
  try {
    PageVars vars;
    vars["text"] = "<span style='color:#f00'><b>Error:</b></span><br>Cannot continue.<br>Out of memory?";
    showPage(vars, "result.html");
  } catch (const std::exception&) {
    return;
  }
}

// Whatever ends an activity, the menu that it came from is shown again.
template <typename Activity, typename... Arguments>
void runActivity(const Activity& activity, Arguments... arguments) {
  try {
    activity(arguments...);
  } catch (const std::exception&) {
    showFailure();
  }
}

void runMainMenuEntry(int result, const Activities& activities) {
  switch (result) {
    case 1:
      return runDownloadMenu(activities);
    case 2:
      return runActivity(activities.information);
    case 3:
      return runActivity(activities.logLevel);
    case 4:
      return runActivity(activities.cloudProxy);
    default:
      return;
  }
}

}  // namespace

void runMainMenu(ProxyEntry offered, const Activities& activities) {
  // Every result below 1 leaves, not only the one for a page that was left.
  for (int result = showMainMenu(offered); result > 0; result = showMainMenu(offered)) {
    runMainMenuEntry(result, activities);
  }
  notifyController("libmac_show_desktop");
}

void runDownloadMenu(const Activities& activities) {
  for (;;) {
    const int result = showPlainPage("download.html");
    if (result == kPageLeft) return;
    if (result == 1) runActivity(activities.httpDownload);
    if (result >= 2 && result <= 4) runActivity(activities.serialDownload, result);
  }
}
