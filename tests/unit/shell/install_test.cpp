#include "shell/install.h"

#include <pthread.h>
#include <zorhtml.h>

#include <atomic>
#include <ctime>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/in_child.h"
#include "tests/support/no_memory.h"
#include "tests/unit/shell/fixture.h"
#include "tests/unit/shell/watched_locks.h"

// The clock of a program that ends, which only its own pauses set forward.
namespace watched {

long long nowMs = 0;
std::function<void()> onPause;

}  // namespace watched

namespace zorhtml {

TimeStamp TimeStamp::Monotonic() {
  return {static_cast<long>(watched::nowMs / 1000), static_cast<long>(watched::nowMs % 1000) * 1000000};
}

}  // namespace zorhtml

// The names are the linker's (--wrap).
extern "C" {
int __wrap_nanosleep(const timespec* time, timespec* /*rest*/) {
  watched::nowMs += time->tv_sec * 1000 + time->tv_nsec / 1000000;
  if (watched::onPause) watched::onPause();
  return 0;
}
}

namespace {

using InstallTest = ShellTest;

std::string lineOf(const std::string& message) {
  std::string text = "before ";
  installLogLine(&text, "%s", message.c_str());
  EXPECT_EQ(text.substr(0, 7), "before ");
  return text.substr(7);
}

TEST(InstallLogLine, ErrorsAndWarnings_AreRed) {
  EXPECT_EQ(lineOf("Error: no room"), "<span style='color:#f00'>Error: no room</span>");
  EXPECT_EQ(lineOf("Error:"), "<span style='color:#f00'>Error:</span>");
  EXPECT_EQ(lineOf("Warning: old\n"), "<span style='color:#f00'>Warning: old<br></span>");
  EXPECT_EQ(lineOf("Error: one\ntwo"), "<span style='color:#f00'>Error: one<br>two</span>");
}

TEST(InstallLogLine, MessageWithoutMemory_IsLostAlone) {
  std::string text = "before ";
  noMemory::after(0);
  installLogLine(&text, "%s", "Error: a message that does not fit into a string itself");
  const bool failed = noMemory::met();
  noMemory::after(-1);
  EXPECT_TRUE(failed);
  installLogLine(&text, "%s", "after");
  EXPECT_EQ(text, "before after");
}

TEST(InstallLogLine, ListHeading_IsGreen) {
  EXPECT_EQ(lineOf("List of installed applications:\n  hello 1.0\n"),
            "<span style='color:#0a0'>List of installed applications:<br>  hello 1.0<br></span>");
  EXPECT_EQ(lineOf("List of installed applications"), "<span style='color:#0a0'>List of installed applications</span>");
}

TEST(InstallLogLine, EverythingElse_IsPlain) {
  for (const char* message :
       {"", "Err", "Error", "error: x", "ERROR: x", " Error: x", "Warning", "warning: x",
        "list of installed applications:", "List of installed application", "Installed hello 1.0"}) {
    EXPECT_EQ(lineOf(message), message);
  }
  EXPECT_EQ(lineOf("one\nError: two"), "one<br>Error: two");  // the message's beginning counts, not that of each line
}

TEST(InstallLogLine, Markup_IsEscapedOnce) {
  EXPECT_EQ(lineOf("a<b & 'c'"), "a&lt;b &amp; &apos;c&apos;");
  EXPECT_EQ(lineOf("&amp; &lt; >\""), "&amp;amp; &amp;lt; &gt;&quot;");
  EXPECT_EQ(lineOf("one\ntwo\tthree\rfour\r\n"), "one<br>two three four <br>");
  EXPECT_EQ(lineOf("\xC3\xA4\x01\xFF"), "\xC3\xA4\x01\xFF");
  EXPECT_EQ(lineOf("Error: <script>\n"), "<span style='color:#f00'>Error: &lt;script&gt;<br></span>");
}

TEST(InstallLogLine, ZeroBytes_BecomeBlanks) {
  std::string text;
  installLogLine(&text, "%c<%c%c>", '\0', '\0', '\0');
  EXPECT_EQ(text, " &lt;  &gt;");
  text.clear();
  installLogLine(&text, "end%c", '\0');
  EXPECT_EQ(text, "end ");
}

TEST(InstallLogLine, FormatAndArguments_AreFormatted) {
  std::string text;
  installLogLine(&text, "Error: %s: %d of %d\n", "upload-0.zip", 3, 7);
  EXPECT_EQ(text, "<span style='color:#f00'>Error: upload-0.zip: 3 of 7<br></span>");
  text.clear();
  installLogLine(&text, "%S", "<");  // the GUI library's own conversion, and then escaped as every line
  EXPECT_EQ(text, "&amp;lt;");
}

TEST(InstallLogLine, Messages_AreJoinedWithoutBreaks) {
  std::string text = "Download successful";
  installLogLine(&text, "one");
  installLogLine(&text, "two\n");
  installLogLine(&text, "Error:three");
  EXPECT_EQ(text, "Download successfulonetwo<br><span style='color:#f00'>Error:three</span>");
}

TEST_F(InstallTest, InstallPackages_AppendsTheLogAndNotifies) {
  installer.messages = {"Installed hello 1.0\n", "List of installed applications:\n"};
  std::string text = "<b>Download successful</b><br>";
  installPackages(text);
  EXPECT_EQ(text,
            "<b>Download successful</b><br>Installed hello 1.0<br>"
            "<span style='color:#0a0'>List of installed applications:<br></span>");
  EXPECT_EQ(installer.installations, 1);
  EXPECT_EQ(controller.commands(), (Names{"libmac_scan_manifests"}));
}

TEST_F(InstallTest, FailedInstallation_IsNotifiedAllTheSame) {
  installer.result = -1;
  std::string text;
  installPackages(text);
  EXPECT_EQ(text, "");
  EXPECT_EQ(controller.commands(), (Names{"libmac_scan_manifests"}));
}

TEST_F(InstallTest, FailedNotification_IsIgnored) {
  controller.setResult(-1);
  installer.messages = {"done"};
  std::string text;
  installPackages(text);
  EXPECT_EQ(text, "done");
}

// The lock of installations: the first that one takes.
pthread_mutex_t* installLock() {
  std::string text;
  return watched::firstLockOf([&text] { installPackages(text); });
}

// Whether another thread could take `lock` now; it is free again afterwards.
bool isFreeForOthers(pthread_mutex_t* lock) {
  return std::async(std::launch::async,
                    [lock] {
                      const bool free = pthread_mutex_trylock(lock) == 0;
                      if (free) pthread_mutex_unlock(lock);
                      return free;
                    })
      .get();
}

TEST_F(InstallTest, Lock_IsHeldFromTheInstallationToTheNotification) {
  pthread_mutex_t* const lock = installLock();
  std::string held;
  installer.onInstall = [&] { held += isFreeForOthers(lock) ? "free " : "held "; };
  controller.onNotify([&] { held += isFreeForOthers(lock) ? "free" : "held"; });
  std::string text;
  installPackages(text);
  EXPECT_EQ(held, "held held");
  EXPECT_TRUE(isFreeForOthers(lock));
}

TEST_F(InstallTest, Exception_ReleasesTheLock) {
  pthread_mutex_t* const lock = installLock();
  installer.onInstall = [] { throw std::runtime_error("broken"); };
  std::string text;
  EXPECT_THROW(installPackages(text), std::runtime_error);
  EXPECT_TRUE(isFreeForOthers(lock));
}

// Each entry of the trace is made under the installer's or the controller's turn; an overlap would break the pattern.
TEST_F(InstallTest, InstallationsAtOnce_RunOneAfterTheOtherEachWithItsNotification) {
  constexpr int kThreads = 8;
  constexpr int kEach = 25;
  std::vector<char> trace;  // guarded by the lock alone: a race here is a failure of the lock
  installer.messages = {"one\n", "two\n"};
  installer.onInstall = [&trace] { trace.push_back('i'); };
  controller.onNotify([&trace] { trace.push_back('n'); });
  std::atomic<int> whole{0};
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&whole] {
      for (int n = 0; n < kEach; ++n) {
        std::string text;
        installPackages(text);
        if (text == "one<br>two<br>") ++whole;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(whole, kThreads * kEach);
  ASSERT_EQ(trace.size(), std::size_t{2} * kThreads * kEach);
  for (std::size_t i = 0; i < trace.size(); ++i) EXPECT_EQ(trace[i], i % 2 == 0 ? 'i' : 'n') << i;
}

// The end of a program, in a process of its own each: it cannot be taken back.
class FinishTest : public ShellTest {
 protected:
  // Runs an installation on another thread until `letGo` is called; returns when it has begun.
  std::thread beginInstallation() {
    installer.onInstall = [this] {
      began.set_value();
      released.get_future().wait();
    };
    std::thread thread([this] { installPackages(running); });
    began.get_future().wait();
    installer.onInstall = nullptr;
    return thread;
  }

  std::promise<void> began;
  std::promise<void> released;
  std::string running;
};

constexpr const char* kEnding =
    "<span style='color:#f00'>Error: the program on the terminal ends: nothing was installed, send again<br></span>";

TEST_F(FinishTest, NoInstallation_IsNotWaitedForAndNoneBeginsAnyMore) {
  EXPECT_EQ(inChild([this] {
              EXPECT_TRUE(finishInstallations());
              EXPECT_EQ(watched::nowMs, 0);
              std::string text = "Upload successful<br>";
              installPackages(text);
              EXPECT_EQ(installer.installations, 0);
              EXPECT_EQ(controller.commands(), Names());
              return text;
            }),
            "Upload successful<br>" + std::string(kEnding));
}

TEST_F(FinishTest, RunningInstallation_IsWaitedForWithItsNotificationAndTheNextDoesNotBegin) {
  EXPECT_EQ(inChild([this] {
              std::thread first = beginInstallation();
              std::promise<void> queued;
              std::string text;
              std::thread second([&] {
                watched::beforeLock = [&] { queued.set_value(); };
                installPackages(text);
              });
              queued.get_future().wait();
              watched::onPause = [&] {
                if (watched::nowMs != 9900) return;
                released.set_value();
                first.join();
                second.join();
              };
              EXPECT_TRUE(finishInstallations());
              EXPECT_EQ(controller.commands(), (Names{"libmac_scan_manifests"}));
              EXPECT_EQ(running, "");
              EXPECT_EQ(text, kEnding);
              return std::to_string(watched::nowMs);
            }),
            "9900");
}

TEST_F(FinishTest, InstallationThatGoesOn_IsWaitedForTenSecondsAndNoLonger) {
  EXPECT_EQ(inChild([this] {
              std::thread thread = beginInstallation();
              EXPECT_FALSE(finishInstallations());
              released.set_value();
              thread.join();
              return std::to_string(watched::nowMs);
            }),
            "10000");
}

}  // namespace
