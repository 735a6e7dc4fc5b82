#include "shell/activity.h"

#include <exception>

#include "shell/pages.h"

namespace {

// Where not even this page can be shown, the menu is the answer.
void showFailure() {
  try {
    PageVars vars;
    showError(vars, "Cannot continue.<br>Out of memory?");
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
