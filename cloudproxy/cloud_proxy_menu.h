// The cloud proxy's pages: its information, its settings, the check of its gateway.
#pragma once

// Shows the cloud proxy menu and runs what is chosen, through runActivity, until the operator leaves it; failures are
// shown on the result page and lead back to the menu. Main thread; blocks. Throws where there is no memory for the menu
// itself.
void runCloudProxyMenu();
