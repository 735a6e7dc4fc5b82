// What the tests of the cloud proxy client have in common: every fake as new, and a proxy that answers as told.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "tests/support/fake_gui.h"
#include "tests/support/fake_ipc.h"
#include "tests/unit/cloudproxy/own_process.h"
#include "tests/unit/cloudproxy/wrapped_clock.h"

using Texts = std::vector<std::string>;
using Vars = std::map<std::string, std::string>;

// The value that `text` is the JSON of.
zoripc::JSObject json(const std::string& text);

class CloudProxyTest : public testing::Test {
 protected:
  CloudProxyTest();

  // Queues the whole response, as JSON text, to the next request with `command`. A request without one gets none: its
  // time-out passes at once.
  void answer(const std::string& command, const std::string& response) { answers_[command].push_back(response); }

  // The variables with which page number `index` was shown.
  Vars varsOf(std::size_t index) const { return gui.shown().at(index).vars; }

  FakeGui& gui = FakeGui::instance();
  FakeIpc& ipc = FakeIpc::instance();

 private:
  int takeRequest(const zoripc::JSObject& message);

  std::map<std::string, std::deque<std::string>> answers_;
};
