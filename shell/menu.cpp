#include "shell/menu.h"

#include "shell/activity.h"
#include "shell/controller.h"
#include "shell/pages.h"

namespace {

int showMainMenu(ProxyEntry offered) {
  PageVars vars;
  vars["show_settings"] = offered == ProxyEntry::kLogLevel ? "1" : "0";
  vars["show_cloudproxy"] = offered == ProxyEntry::kCloudProxy ? "1" : "0";
  return showPage(vars, "mainmenu.html");
}

void runMainMenuEntry(int result, const Activities& activities) {
  switch (result) {
    case 1:
      return runActivity([&activities] { runDownloadMenu(activities); });
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
    if (result >= 2 && result <= 4) {
      runActivity([&activities, result] { activities.serialDownload(result); });
    }
  }
}
