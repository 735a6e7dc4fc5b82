// What the tests of the shell have in common: every fake as new.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/fake_controller.h"
#include "tests/support/fake_gui.h"
#include "tests/support/fake_installer.h"
#include "tests/support/fake_terminal.h"

using Names = std::vector<std::string>;

class ShellTest : public testing::Test {
 protected:
  ShellTest() {
    gui.reset();
    installer.reset();
    controller.reset();
    terminal.reset();
  }

  FakeGui& gui = FakeGui::instance();
  FakeInstaller& installer = FakeInstaller::instance();
  FakeController& controller = FakeController::instance();
  FakeTerminal& terminal = FakeTerminal::instance();
};
