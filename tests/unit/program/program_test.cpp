// The whole program from its entry on, with what it calls under the test's control: in which order a start goes, and
// how the menus end.
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <jsproc.h>
#include <pthread.h>
#include <sys/stat.h>
#include <zorhtml.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <future>
#include <map>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "http/listener.h"
#include "shell/install.h"
#include "tests/support/fake_gui.h"
#include "tests/support/fake_installer.h"
#include "tests/support/fake_ipc.h"
#include "tests/support/in_child.h"

// The program's main(), which is compiled under this name here.
int programMain(int argc, char** argv);

namespace {

// What the program did, a line each; nothing while it is not recorded.
std::string events;
bool recording = false;

void note(const std::string& event) {
  if (recording) events += event + "\n";
}

// The clock stands still, however long a pause takes, or is set forward by pauses alone, which take no time then.
bool clockRuns = false;
long nowMs = 0;

mode_t firstMode = 0700;  // of the first configuration directory

// The first configuration directory is closed to others, the second missing, the third open.
int statusOf(const std::string& path, mode_t& mode) {
  note("stat " + path);
  if (path == "/mnt/flash/etc/config/jxapp/jx") return errno = ENOENT, -1;
  mode = S_IFDIR | (path == "/mnt/flash/etc/config/jxapp" ? firstMode : 0755);
  return 0;
}

std::string octal(mode_t mode) {
  std::string digits;
  for (; mode != 0; mode /= 8) digits.insert(digits.begin(), static_cast<char>('0' + mode % 8));
  return digits;
}

}  // namespace

// The linker sends the program's own calls here (--wrap); the names are its convention.
extern "C" {
mode_t __real_umask(mode_t mask);
int __real_stat(const char* path, struct stat* status);
int __real_stat64(const char* path, struct stat64* status);
int __real_chmod(const char* path, mode_t mode);
int __real_mkdir(const char* path, mode_t mode);
int __real_setenv(const char* name, const char* value, int overwrite);

// A response that was delivered is waited for however long it takes: none of the waits here ends by its time.
int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* /*end*/) {
  return pthread_cond_wait(condition, mutex);
}

int __wrap_nanosleep(const timespec* time, timespec* /*rest*/) {
  if (clockRuns) {
    nowMs += time->tv_sec * 1000 + time->tv_nsec / 1000000;
  } else {
    std::this_thread::yield();
  }
  return 0;
}

[[noreturn]] void __wrap__Exit(int status) { endChild(events + "at once, status " + std::to_string(status) + "\n"); }

mode_t __wrap_umask(mode_t mask) {
  note("umask " + octal(mask));
  return __real_umask(mask);
}

int __wrap_stat(const char* path, struct stat* status) {
  return recording ? statusOf(path, status->st_mode) : __real_stat(path, status);
}

int __wrap_stat64(const char* path, struct stat64* status) {
  return recording ? statusOf(path, status->st_mode) : __real_stat64(path, status);
}

int __wrap_chmod(const char* path, mode_t mode) {
  if (!recording) return __real_chmod(path, mode);
  note("chmod " + std::string(path) + " " + octal(mode));
  return errno = EROFS, -1;
}

int __wrap_mkdir(const char* path, mode_t mode) {
  if (!recording) return __real_mkdir(path, mode);
  note("mkdir " + std::string(path));
  return errno = EROFS, -1;
}

int __wrap_setenv(const char* name, const char* value, int overwrite) {
  note("setenv " + std::string(name) + "=" + value + " " + std::to_string(overwrite));
  return __real_setenv(name, value, overwrite);
}

int __wrap_getifaddrs(ifaddrs** /*list*/) {
  note("addresses");
  return errno = ENOMEM, -1;
}
}

namespace zorhtml {

void htmlSetScriptProcessor(const char* name, ScriptProcessor processor, void* userData) {
  const bool isStated = processor == js::jsProcessorExt && userData == nullptr;
  note("processor " + std::string(name) + (isStated ? "" : " of another kind"));
}

TimeStamp TimeStamp::Monotonic() { return {nowMs / 1000, nowMs % 1000 * 1000000}; }

bool serve(ServerSettings& settings, const HttpThread& /*prototype*/, CopyServer /*copy*/) {
  note("serve " + std::to_string(settings.port));
  return false;
}

}  // namespace zorhtml

namespace {

using Vars = std::map<std::string, std::string>;

const std::string kPreparation =
    "umask 22\n"
    "stat /mnt/flash/etc/config/jxapp\n"
    "chmod /mnt/flash/etc/config/jxapp 705\n"
    "stat /mnt/flash/etc/config/jxapp/jx\n"
    "stat /mnt/flash/etc/config/jxapp/mp\n"
    "processor js\n"
    "setenv GUIPRT_APPNAME=jxdownloader 1\n";
const std::string kProbe = "ipc {\"proxy\":{\"command\":\"info\"}}\nipc {\"proxy\":{\"command\":\"readconfig\"}}\n";
const std::string kDesktop = "ipc {\"libmac_cmd\":\"libmac_show_desktop\",\"libmac_version\":\"3.16.5-79\"}\n";

// The responses of the cloud proxy, as JSON text, by the command of the request.
using Proxy = std::map<std::string, std::string>;

int answerFrom(const Proxy& proxy, const zoripc::JSObject& message) {
  note("ipc " + message.dump());
  const auto response = proxy.find(message["proxy"]["command"].getString());
  if (response == proxy.end()) return -1;
  zoripc::JSObject parsed;
  EXPECT_TRUE(zoripc::JSObject::parse(response->second, parsed));
  FakeIpc::instance().deliver("CloudProxyConfResponse", parsed);
  return 0;
}

// What the program does with these arguments, with the pages it shows without menus, and its exit status; `pages`
// answers "mainmenu.html", one after the other. In a process of its own, because it ends.
std::string run(std::vector<std::string> arguments, const std::vector<FakeGui::Answer>& pages = {},
                const Proxy& proxy = {}) {
  return inChild([&] {
    FakeIpc::instance().onSend([&proxy](const zoripc::JSObject& message) { return answerFrom(proxy, message); });
    for (const FakeGui::Answer& page : pages) FakeGui::instance().answer("mainmenu.html", page);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    recording = true;
    const int status = programMain(static_cast<int>(arguments.size()), argv.data());
    recording = false;
    if (arguments.size() > 1) {
      for (const std::string& name : FakeGui::instance().shownNames()) events += name + "\n";
    }
    return events + "status " + std::to_string(status) + "\n";
  });
}

FakeGui::Answer answerWith(int result) {
  return [result](Vars& vars) {
    note("menu " + vars.at("show_settings") + vars.at("show_cloudproxy"));
    return result;
  };
}

TEST(Program, WrongArgument_IsToldAfterThePreparation) {
  for (const std::string argument : {"x", "", "--HTTP", "--httpx", "--htt", "--http "}) {
    for (const std::vector<std::string>& more : {std::vector<std::string>{}, std::vector<std::string>{"--http"}}) {
      std::vector<std::string> arguments{"./any %s", argument};
      arguments.insert(arguments.end(), more.begin(), more.end());
      testing::internal::CaptureStderr();
      EXPECT_EQ(run(arguments), kPreparation + "status 1\n") << argument;
      EXPECT_EQ(testing::internal::GetCapturedStderr(), "Usage: ./any %s [--http]\n") << argument;
    }
  }
}

// What others lack is added, and nothing is taken away or changed that they have.
TEST(Program, ModesOfDirectories_GainReadAndSearchForOthers) {
  const auto changed = [](mode_t mode) {
    firstMode = mode;
    const std::string done = run({"jxdownloader", "--http"});
    firstMode = 0700;
    const std::string change = "chmod /mnt/flash/etc/config/jxapp ";
    const std::size_t at = done.find(change);
    return at == std::string::npos ? "" : done.substr(at + change.size(), done.find('\n', at) - at - change.size());
  };
  for (const auto& [before, after] : std::map<mode_t, std::string>{{0, "5"},
                                                                   {0700, "705"},
                                                                   {0701, "705"},
                                                                   {0702, "707"},
                                                                   {0704, "705"},
                                                                   {0750, "755"},
                                                                   {02700, "2705"},
                                                                   {01770, "1775"},
                                                                   {0705, ""},
                                                                   {0755, ""},
                                                                   {0777, ""}}) {
    EXPECT_EQ(changed(before), after) << before;
  }
}

TEST(Program, ServerAlone_IsPreparedTheSameWithoutPagesAddressesOrController) {
  EXPECT_EQ(run({"jxdownloader", "--http"}), kPreparation + "serve 6370\nstatus 0\n");
  EXPECT_EQ(run({"jxdownloader", "--http", "x"}), kPreparation + "serve 6370\nstatus 0\n");
}

TEST(Program, LeftArchives_AreRemovedInEitherModeAndNotByAWrongArgument) {
  std::string folder = testing::TempDir() + "jxprogram-XXXXXX";
  FakeInstaller::instance().sourceDir = mkdtemp(folder.data());
  const std::string archive = folder + "/upload-0.zip";
  const auto staysAfter = [&archive](const std::vector<std::string>& arguments) {
    std::ofstream(archive) << "left";
    run(arguments);
    return std::ifstream(archive).is_open();
  };
  EXPECT_TRUE(staysAfter({"jxdownloader", "--help"}));
  EXPECT_FALSE(staysAfter({"jxdownloader", "--http"}));
  EXPECT_FALSE(staysAfter({"jxdownloader"}));
  FakeInstaller::instance().reset();
  EXPECT_EQ(std::remove(folder.c_str()), 0);
}

TEST(Program, Menus_AreProbedForOnceAndEndWithTheDesktop) {
  for (const int last : {-1, 0, -7}) {
    EXPECT_EQ(run({"jxdownloader"}, {answerWith(7), answerWith(5), answerWith(last)}),
              kPreparation + kProbe + "menu 00\nmenu 00\nmenu 00\n" + kDesktop + "status 0\n");
  }
}

// What the probe finds is what the menu offers: the right one of its two entries.
TEST(Program, ProxyThatAnswers_HasItsEntryInTheMenu) {
  const std::string failure = R"({"proxy":{"result":"error"}})";
  const std::string level = R"({"proxy":{"result":"success","loglevel":3}})";
  const std::string info = R"({"proxy":{"result":"success","version":"1","device_type":"prod","auth_ex_support":0}})";
  EXPECT_EQ(run({"jxdownloader"}, {answerWith(-1)}, {{"info", failure}, {"readconfig", level}}),
            kPreparation + kProbe + "menu 10\n" + kDesktop + "status 0\n");
  EXPECT_EQ(run({"jxdownloader"}, {answerWith(-1)}, {{"info", info}, {"readconfig", level}}),
            kPreparation + "ipc {\"proxy\":{\"command\":\"info\"}}\nmenu 01\n" + kDesktop + "status 0\n");
}

TEST(Program, Entries_LeadToTheirPagesAndBack) {
  const std::string readConfiguration = "ipc {\"proxy\":{\"command\":\"readconfig\"}}\n";
  const auto shown = [](Vars&) {
    for (const std::string& name : FakeGui::instance().shownNames()) note(name);
    return -1;
  };
  EXPECT_EQ(run({"jxdownloader"}, {answerWith(2), answerWith(3), answerWith(4), answerWith(1), shown}),
            kPreparation + kProbe + "menu 00\nmenu 00\n" + readConfiguration +
                "menu 00\nmenu 00\n"
                "mainmenu.html\ninfo.html\nmainmenu.html\nresult.html\nmainmenu.html\ncloudproxy.html\n"
                "mainmenu.html\ndownload.html\nmainmenu.html\n" +
                kDesktop + "status 0\n");
}

// The pages of all five activities fail, and the download menu's; the log level's own entry is chosen as the page may.
TEST(Program, FailureOfAnyActivity_IsShownAndLeadsBackToItsMenu) {
  FakeGui& gui = FakeGui::instance();
  gui.reset();
  const auto outOfMemory = [](Vars&) -> int { throw std::bad_alloc(); };
  for (const char* const page : {"info.html", "settings.html", "prx-info.html"}) gui.answer(page, outOfMemory);
  gui.onAsync([](const ShownPage&) { throw std::bad_alloc(); });
  gui.answer("cloudproxy.html", 1);
  gui.answer("cloudproxy.html", -1);
  for (const int result : {1, 4, 3, -1}) gui.answer("download.html", result);
  const auto last = [](Vars&) {
    for (const ShownPage& page : FakeGui::instance().shown()) {
      if (page.page == "mainmenu.html") continue;
      const char* const detail = page.page == "download-ddl.html" ? "portname" : "text";
      note(page.page + (page.vars.count(detail) != 0 ? " " + page.vars.at(detail) : ""));
    }
    return -1;
  };
  const std::string level = R"({"proxy":{"result":"success","loglevel":3}})";
  const std::string info = R"({"proxy":{"result":"success","version":"1","device_type":"prod","auth_ex_support":0}})";
  const std::string told =
      "result.html <span style='color:#f00'><b>Error:</b></span><br>Cannot continue.<br>Out of memory?\n";
  const std::string shown = run({"jxdownloader"}, {answerWith(2), answerWith(3), answerWith(4), answerWith(1), last},
                                {{"info", info}, {"readconfig", level}});
  const std::string expected = "info.html\n" + told + "settings.html\n" + told + "cloudproxy.html\nprx-info.html\n" +
                               told + "cloudproxy.html\ndownload.html\nwait.html Checking network.\n" + told +
                               "download.html\ndownload-ddl.html COM2\n" + told +
                               "download.html\ndownload-ddl.html COM1\n" + told + "download.html\n";
  EXPECT_NE(shown.find("\n" + expected), std::string::npos) << shown;
}

TEST(Program, MenusWithoutMemory_EndWithTheDesktopAndStatus1) {
  const auto outOfMemory = [](Vars&) -> int { throw std::bad_alloc(); };
  EXPECT_EQ(run({"jxdownloader"}, {answerWith(7), outOfMemory}),
            kPreparation + kProbe + "menu 00\n" + kDesktop + "status 1\n");
}

// Leaves the menus while an installation runs, which goes on until the desktop is asked for, or for ever.
FakeGui::Answer leaveWhileInstalling(bool forEver) {
  return [forEver](Vars&) {
    static std::promise<void> installing;
    static std::promise<void> desktop;
    FakeIpc::instance().onSend([forEver](const zoripc::JSObject& message) {
      note("ipc " + message.dump());
      if (!forEver && message["libmac_cmd"].getString() == "libmac_show_desktop") desktop.set_value();
      return -1;
    });
    FakeInstaller::instance().onInstall = [] {
      installing.set_value();
      desktop.get_future().wait();
      note("installed");
    };
    std::thread([] {
      std::string text;
      installPackages(text);
    }).detach();
    installing.get_future().wait();
    return -1;
  };
}

TEST(Program, InstallationAtTheEnd_IsLetFinish) {
  EXPECT_EQ(
      run({"jxdownloader"}, {leaveWhileInstalling(false)}),
      kPreparation + kProbe + kDesktop +
          "installed\nipc {\"libmac_cmd\":\"libmac_scan_manifests\",\"libmac_version\":\"3.16.5-79\"}\nstatus 0\n");
}

TEST(Program, InstallationThatDoesNotEnd_IsGivenUpWithoutDestroyingWhatItUses) {
  clockRuns = true;
  EXPECT_EQ(run({"jxdownloader"}, {leaveWhileInstalling(true)}),
            kPreparation + kProbe + kDesktop + "at once, status 0\n");
  clockRuns = false;
}

TEST(Program, HangUpOfALine_DoesNotEndTheMenus) {
  const auto hangUp = [](Vars&) { return std::raise(SIGHUP) == 0 ? -1 : 7; };
  EXPECT_EQ(run({"jxdownloader"}, {hangUp}), kPreparation + kProbe + kDesktop + "status 0\n");
}

}  // namespace
