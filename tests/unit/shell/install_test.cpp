#include "shell/install.h"

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <thread>

#include "tests/support/no_memory.h"
#include "tests/unit/shell/fixture.h"

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
}

TEST(InstallLogLine, FormatAndArguments_AreFormatted) {
  std::string text;
  installLogLine(&text, "Error: %s: %d of %d\n", "upload-0.zip", 3, 7);
  EXPECT_EQ(text, "<span style='color:#f00'>Error: upload-0.zip: 3 of 7<br></span>");
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

// Whether another thread could take the lock now; it is free again afterwards.
bool isFreeForOthers() {
  bool free = false;
  std::thread([&free] {
    const int result = pthread_mutex_trylock(&installLock);
    EXPECT_TRUE(result == 0 || result == EBUSY);
    free = result == 0;
    if (free) pthread_mutex_unlock(&installLock);
  }).join();
  return free;
}

TEST_F(InstallTest, Lock_IsHeldFromTheInstallationToTheNotification) {
  bool freeInInstallation = true;
  bool freeInNotification = true;
  installer.onInstall = [&] { freeInInstallation = isFreeForOthers(); };
  controller.onNotify([&] { freeInNotification = isFreeForOthers(); });
  std::string text;
  installPackages(text);
  EXPECT_EQ(installer.installations, 1);
  EXPECT_FALSE(freeInInstallation);
  EXPECT_FALSE(freeInNotification);
  EXPECT_TRUE(isFreeForOthers());
}

TEST_F(InstallTest, Exception_ReleasesTheLock) {
  installer.onInstall = [] { throw std::runtime_error("broken"); };
  std::string text;
  EXPECT_THROW(installPackages(text), std::runtime_error);
  EXPECT_TRUE(isFreeForOthers());
}

// Each entry of the trace is made under the installer's or the controller's turn; an overlap would break the pattern.
TEST_F(InstallTest, InstallationsAtOnce_RunOneAfterTheOtherEachWithItsNotification) {
  constexpr int kThreads = 8;
  constexpr int kEach = 25;
  std::vector<char> trace;  // guarded by installLock alone: a race here is a failure of the lock
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

}  // namespace
