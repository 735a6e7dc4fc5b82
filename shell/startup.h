// What the process needs before its first page or connection.
#pragma once

// Sets the file mode mask, widens the modes of the configuration directories that exist, registers the pages' script
// processor and names the application to the GUI library. Once, on the first thread, before any other.
void prepareProcess();

// Gives the threads to come, one for each connection, a stack of 1 MiB. Hundreds of them have room in 32 bits of
// addresses, where the usual 8 MiB use them up after some 350, and the C library keeps ended ones for the next; an
// installation runs on such a stack, hence no less. Where it is refused, the stacks stay as they are. Once, before any
// thread.
void limitThreadStacks();
