// The upload server without a screen.
#pragma once

// Runs the upload server on its port in the calling thread until the process is killed; returns at once, after a
// message on standard error, when the port cannot be opened.
void runServerOnly();
