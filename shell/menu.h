// The main menu and the download menu. What their entries start is handed in.
#pragma once

#include <functional>

// The cloud proxy's entry in the main menu for the whole run: one of two at most.
enum class ProxyEntry { kNone, kLogLevel, kCloudProxy };

// What the menu entries run, on the main thread, through runActivity; each returns when the operator is to see the menu
// again.
struct Activities {
  std::function<void()> information;
  std::function<void()> logLevel;
  std::function<void()> cloudProxy;
  std::function<void()> httpDownload;
  std::function<void(int port)> serialDownload;  // 2: USB, 3: COM1, 4: COM2
};

// Shows the main menu and runs what is chosen until the operator leaves it, then tells the application controller to
// show the desktop. Main thread; blocks. Throws, without telling, where there is no memory for the menu itself.
void runMainMenu(ProxyEntry offered, const Activities& activities);

// Shows the download menu and runs what is chosen until the operator leaves it. Main thread; blocks. Throws where there
// is no memory for the menu itself.
void runDownloadMenu(const Activities& activities);
