// A bus of the test's own.
#pragma once

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

// A directory with a D-Bus daemon in it, which can be ended and started again at the same address.
class PrivateBus {
 public:
  PrivateBus() {
    char path[] = "/tmp/jxbus-XXXXXX";
    const char* made = mkdtemp(path);
    EXPECT_NE(made, nullptr);
    directory_ = made == nullptr ? "" : made;
    start();
  }
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;
  ~PrivateBus() {
    stop();
    unlink(path().c_str());
    rmdir(directory_.c_str());
  }

  std::string path() const { return directory_ + "/bus"; }
  std::string address() const { return "unix:path=" + path(); }
  pid_t pid() const { return pid_; }

  // Returns once it accepts connections. Who is to be the first on it connects in `first`, to another address.
  void start(const std::function<void(const std::string& address)>& first = nullptr) {
    unlink(path().c_str());
    int ready[2] = {-1, -1};
    ASSERT_EQ(pipe(ready), 0);
    const std::string hidden = address() + "-hidden";
    const std::string listen = "--address=" + hidden;
    const std::string tell = "--print-address=" + std::to_string(ready[1]);
    pid_ = fork();
    if (pid_ == 0) {
      close(ready[0]);
      prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that crashes leaves nobody behind who holds its outputs
      execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--nosyslog", listen.c_str(), tell.c_str(),
             static_cast<char*>(nullptr));
      _exit(127);
    }
    close(ready[1]);
    char byte = 0;
    EXPECT_EQ(read(ready[0], &byte, 1), 1) << "dbus-daemon did not start";
    close(ready[0]);
    if (first) first(hidden);
    EXPECT_EQ(rename((path() + "-hidden").c_str(), path().c_str()), 0);
  }

  void stop() {
    if (pid_ <= 0) return;
    kill(pid_, SIGCONT);
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  std::string directory_;
  pid_t pid_ = -1;
};
