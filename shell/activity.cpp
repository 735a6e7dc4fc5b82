#include "shell/activity.h"

#include <exception>

#include "shell/pages.h"

namespace {

// Where not even this page can be shown, the menu is the answer.
void showFailure() {
  try {
    PageVars vars;
    vars["text"] = errorText("Cannot continue.<br>Out of memory?");
    showPage(vars, "result.html");
  } catch (const std::exception&) {
    return;
  }
}

}  // namespace

void runActivity(const std::function<void()>& activity) {
  try {
    activity();
  } catch (const std::exception&) {
    showFailure();
  }
}
