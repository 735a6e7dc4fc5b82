// The page with the facts about the terminal.
#pragma once

// Shows the GUI service's version, the sponsor number and the serial number until the operator leaves the page. Main
// thread; blocks.
void runInformationPage();
