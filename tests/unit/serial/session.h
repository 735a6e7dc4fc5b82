// A download session on a thread of its own, with the host's and the operator's ends in the test's hand.
#pragma once

#include "serial/download_session.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "shell/pages.h"
#include "tests/support/fake_controller.h"
#include "tests/support/fake_gui.h"
#include "tests/support/fake_installer.h"
#include "tests/unit/serial/calls.h"
#include "tests/unit/serial/download.h"

using Names = std::vector<std::string>;

// A session on a thread of its own; the test is the host and the operator.
class Session : public testing::Test {
 protected:
  Session() {
    Calls::instance().timeDivisor = 20;
    Calls::instance().onOpen = [this](const std::string& path) {
      if (path.compare(0, 8, "/dev/tty") != 0) return path;
      opened_ = path;
      return device_.empty() ? line_.path() : device_;
    };
    FakeGui::instance().reset();
    installer().reset();
    FakeController::instance().reset();
    char folder[] = "/tmp/jxserial-XXXXXX";
    root_ = mkdtemp(folder);
    installer().sourceDir = root_ + "/source";
  }

  ~Session() override {
    if (thread_.joinable()) {
      line_.hangUp();
      thread_.join();
    }
    FakeGui::instance().reset();
    const std::string command = "rm -rf " + root_;
    if (std::system(command.c_str()) != 0) ADD_FAILURE() << command;
  }

  static FakeInstaller& installer() { return FakeInstaller::instance(); }

  void begin(int port) {
    thread_ = std::thread([this, port] {
      Calls::thisThreadReceives();
      result_ = download_ddl(port);
    });
  }

  void beginAndConnect(int port = 3) {
    untilReady([&] { begin(port); });
  }

  std::string exchange(const std::string& record) {
    line_.send(record);
    return line_.receive(1);
  }

  int end() {
    thread_.join();
    return result_;
  }

  static std::string outcome() {
    const std::vector<ShownPage> pages = FakeGui::instance().shown();
    EXPECT_EQ("result.html", pages.back().page);
    EXPECT_TRUE(pages.back().synchronous);
    return pages.back().vars.at("text");
  }

  std::string archive(int number) const {
    std::ifstream file(installer().sourceDir + "/upload-" + std::to_string(number) + ".zip", std::ios::binary);
    return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "absent";
  }

  CallsReset reset_;
  PtyPair line_;
  std::string device_;  // opened instead of the line
  std::string opened_;
  std::string root_;
  std::thread thread_;
  int result_ = 0;
};
