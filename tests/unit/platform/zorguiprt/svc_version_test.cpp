#include <gtest/gtest.h>
#include <zorguiprt.h>

#include "tests/support/platform_root.h"

// One look for the life of the process, so one test.
TEST(ServiceVersion, TerminalsSettings_NameIt) {
  writeTerminalJson(R"({"gui_version":"4.2 <test>"})");
  const char* const version = zorgui::gui_GetSvcVersion();
  EXPECT_STREQ(version, "4.2 <test>");
  writeTerminalJson(nullptr);
  EXPECT_EQ(zorgui::gui_GetSvcVersion(), version);
}
