// Notifications to the terminal's application controller.
#pragma once

// Sends `command` to the controller; nothing waits for an answer, and a failure is ignored. Any thread.
void notifyController(const char* command);
