// The serial download as an activity of the terminal.
#pragma once

// Runs one serial download and shows its outcome. `port` is the download menu's result: 3 is COM1, 4 is COM2, anything
// else USB. Shows "download-ddl.html" while the host sends, stores what it sends in the installer's source directory as
// upload-0.zip, upload-1.zip and so on, installs it when the host has ended the download, and shows "result.html".
// Returns the download's result (Tessolan::kDone or a negative code). Main thread; blocks until the operator has left
// the outcome.
int download_ddl(int port);
