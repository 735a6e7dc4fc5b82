// The HTTP download, as the operator chooses it in the download menu.
#pragma once

#include <zorguiprt.h>

// Waits for the terminal to have an address, shows under which URLs it is reached, and runs the upload server until the
// operator leaves that page; or reports that there is no address. Uploads under way then go on. Main thread; blocks.
void runHttpDownload();

// The callback of the page with the URLs: stops the server of the zorhtml::ServerSettings behind `data` (may be null)
// when the page was left. On the GUI library's thread.
void stopOnPageEnd(void* data, int type, const zorgui::UICallbackData* info);
