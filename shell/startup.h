// What the process needs before its first page or connection.
#pragma once

// Sets the file mode mask, widens the modes of the configuration directories that exist, registers the pages' script
// processor and names the application to the GUI library. Once, on the first thread, before any other.
void prepareProcess();
