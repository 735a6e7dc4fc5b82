#include "tests/unit/serial/session.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <new>

#include "shell/source_directory.h"
#include "tests/support/vanishing_stack.h"

namespace {

constexpr const char* kErrorHead = "<span style='color:#f00'><b>Error:</b></span><br>";

}  // namespace

TEST_F(Session, EachPort_HasItsNameAndDevice) {
  const struct {
    int port;
    std::string name;
    std::string device;
  } cases[] = {{2, "USB", "/dev/ttyGS0"}, {3, "COM1", "/dev/ttyAMA0"}, {4, "COM2", "/dev/ttyAMA1"},
               {0, "", "/dev/ttyGS0"},    {1, "", "/dev/ttyGS0"},      {5, "", "/dev/ttyGS0"},
               {-1, "", "/dev/ttyGS0"}};
  device_ = "/nonexistent/device";
  for (const auto& item : cases) {
    FakeGui::instance().reset();
    EXPECT_EQ(-1, download_ddl(item.port));
    EXPECT_EQ(item.device, opened_);
    EXPECT_EQ(kErrorHead + item.name + " download failed -1.", outcome());
    EXPECT_EQ((Names{"download-ddl.html", "result.html"}), FakeGui::instance().shownNames());
    EXPECT_EQ((PageVars{{"portname", item.name}}), FakeGui::instance().shown()[0].vars);
    EXPECT_EQ(item.name, FakeGui::instance().shown()[1].vars.at("portname"));
  }
}

TEST_F(Session, TwoFiles_AreStoredByNumberAndInstalled) {
  installer().messages = {"Installed hello 1.0.0\n"};
  beginAndConnect();
  EXPECT_EQ("\x06", exchange(openRecord("../../etc/passwd")));
  EXPECT_EQ("\x06", exchange(dataRecord(0, "first")));
  EXPECT_EQ("\x06", exchange(signalRecord('C')));
  EXPECT_EQ("\x06", exchange(openRecord("upload-7.zip")));
  EXPECT_EQ("\x06", exchange(dataRecord(0, "second")));
  EXPECT_EQ("\x06", exchange(signalRecord('C')));
  EXPECT_EQ("\x04", exchange("\x04"));
  EXPECT_EQ(0, end());
  EXPECT_EQ("first", archive(0));
  EXPECT_EQ("second", archive(1));
  EXPECT_EQ((Names{"download-ddl.html", "install-ddl.html", "result.html"}), FakeGui::instance().shownNames());
  EXPECT_TRUE(FakeGui::instance().shown()[1].synchronous);
  EXPECT_TRUE(FakeGui::instance().shown()[1].vars.empty());
  EXPECT_EQ("<span style='color:#0f0'><b>Download successful</b></span><br>Installed hello 1.0.0<br>", outcome());
  EXPECT_EQ(1, installer().installations);
  EXPECT_EQ(Names{"libmac_scan_manifests"}, FakeController::instance().commands());
}

TEST_F(Session, AnotherStartOfTheProgram_TakesNothingFromASession) {
  installer().sourceDir = root_;
  installer().onInstall = [this] {
    removeLeftArchives();
    EXPECT_EQ("one", archive(0));
  };
  beginAndConnect();
  exchange(openRecord("a"));
  removeLeftArchives();
  exchange(dataRecord(0, "one"));
  exchange("\x04");
  EXPECT_EQ(0, end());
  EXPECT_EQ(1, installer().installations);
  removeLeftArchives();
  EXPECT_EQ("absent", archive(0));
}

TEST_F(Session, InstallationPage_IsShownBeforeTheInstallationAndTheOutcomeAfter) {
  Names shown;
  installer().onInstall = [&shown] { shown = FakeGui::instance().shownNames(); };
  for (const int left : {-1, 0, 1, 7}) {
    FakeGui::instance().reset();
    FakeGui::instance().answer("install-ddl.html", left);
    FakeGui::instance().answer("result.html", left);
    beginAndConnect();
    EXPECT_EQ("\x04", exchange("\x04"));
    EXPECT_EQ(0, end());
    EXPECT_EQ((Names{"download-ddl.html", "install-ddl.html"}), shown);
    EXPECT_EQ((Names{"download-ddl.html", "install-ddl.html", "result.html"}), FakeGui::instance().shownNames());
  }
}

TEST_F(Session, SourceDirectory_IsMadeForEachFile) {
  beginAndConnect();
  exchange(openRecord("setgroup.x"));
  EXPECT_EQ(0, installer().directoriesMade);
  exchange(openRecord("a"));
  exchange(openRecord("b"));
  exchange("\x04");
  EXPECT_EQ(0, end());
  EXPECT_EQ(2, installer().directoriesMade);
}

TEST_F(Session, EachFileAndEachSetting_ClosesTheFileBefore) {
  beginAndConnect();
  const int before = openFiles();
  for (const std::string name : {"a", "b", "c"}) {
    EXPECT_EQ("\x06", exchange(openRecord(name)));
    EXPECT_EQ(before + 1, openFiles()) << name;
  }
  EXPECT_EQ("\x06", exchange(openRecord("setgroup.x")));
  EXPECT_EQ(before, openFiles());
  EXPECT_EQ("\x06", exchange(openRecord("d")));
  EXPECT_EQ("\x06", exchange(signalRecord('C')));
  EXPECT_EQ(before, openFiles());
  exchange("\x04");
  EXPECT_EQ(0, end());
}

TEST_F(Session, EveryEndWithAFileStillOpen_ClosesItWhenTheOutcomeHasBeenLeft) {
  const struct {
    std::function<void()> end;
    int result;
  } cases[] = {{[this] { exchange("\x04"); }, 0},
               {[] { FakeGui::instance().report(0, 1); }, -2},
               {[this] { line_.send("\x02X\x02X\x02X"), line_.receive(3); }, -3},
               {[this] { exchange(textRecord('M', std::string(253, 'x'))); }, -4}};
  const int before = openFiles();
  for (const auto& item : cases) {
    int inOutcome = 0;
    FakeGui::instance().answer("result.html", [&](auto&) { return inOutcome = openFiles(), 0; });
    beginAndConnect();
    EXPECT_EQ("\x06", exchange(openRecord("a"))) << item.result;
    item.end();
    EXPECT_EQ(item.result, end());
    EXPECT_EQ(before + 1, inOutcome) << item.result;  // the archive, and no longer the device
    EXPECT_EQ(before, openFiles()) << item.result;
  }
}

TEST_F(Session, SecondSession_BeginsAtZeroAgainAndTruncates) {
  for (const std::string content : {"a longer content", "short"}) {
    beginAndConnect();
    EXPECT_EQ("\x06\x06\x06\x04",
              (line_.send(openRecord("a") + dataRecord(0, content) + signalRecord('C') + "\x04"), line_.receive(4)));
    EXPECT_EQ(0, end());
    EXPECT_EQ(content, archive(0));
  }
  EXPECT_EQ("absent", archive(1));
}

TEST_F(Session, Blocks_MayComeInAnyOrderAndOverlap) {
  beginAndConnect();
  exchange(openRecord("a"));
  EXPECT_EQ("\x06", exchange(dataRecord(6, "world!")));
  EXPECT_EQ("\x06", exchange(dataRecord(0, "hello ")));
  EXPECT_EQ("\x06", exchange(dataRecord(4, "0_W")));
  EXPECT_EQ("\x06", exchange(dataRecord(20, "")));
  exchange(signalRecord('C'));
  exchange("\x04");
  EXPECT_EQ(0, end());
  EXPECT_EQ("hell0_World!", archive(0));
}

TEST_F(Session, OffsetBeyondTwoGiB_IsWrittenWhereItBelongsOrRefused) {
  beginAndConnect();
  exchange(openRecord("a"));
  const std::string answer = exchange(dataRecord(0x80000000U, "x"));
  if (sizeof(long) > 4) {
    EXPECT_EQ("\x06", answer);
    exchange("\x04");
    EXPECT_EQ(0, end());
    struct stat status {};
    ASSERT_EQ(0, stat((installer().sourceDir + "/upload-0.zip").c_str(), &status));
    EXPECT_EQ(0x80000001LL, static_cast<long long>(status.st_size));
  } else {
    EXPECT_EQ("\x04", answer);
    EXPECT_EQ(-5, end());
  }
}

TEST_F(Session, BlockWithoutAFile_EndsWithMinusFive) {
  beginAndConnect();
  EXPECT_EQ("\x04", exchange(dataRecord(0, "a")));
  EXPECT_EQ(-5, end());
  EXPECT_EQ(kErrorHead + std::string("COM1 download failed -5."), outcome());
  EXPECT_EQ(0, installer().installations);
  EXPECT_TRUE(FakeController::instance().commands().empty());
}

TEST_F(Session, Settings_AreAcceptedAndTheirBlocksRefused) {
  for (const std::string name : {"setgroup.1", "setdrive.", "setdrive.xyz"}) {
    beginAndConnect();
    EXPECT_EQ("\x06", exchange(openRecord(name))) << name;
    EXPECT_EQ("\x04", exchange(dataRecord(0, "a"))) << name;
    EXPECT_EQ(-5, end());
    EXPECT_EQ("absent", archive(0));
  }
}

TEST_F(Session, Settings_UseNoNumberAndEndTheFileBefore) {
  beginAndConnect();
  exchange(openRecord("a") + dataRecord(0, "one"));
  line_.receive(1);
  EXPECT_EQ("\x06", exchange(openRecord("setgroup.x")));
  EXPECT_EQ("\x06", exchange(openRecord("b")));
  EXPECT_EQ("\x06", exchange(dataRecord(0, "two")));
  exchange("\x04");
  EXPECT_EQ(0, end());
  EXPECT_EQ("one", archive(0));
  EXPECT_EQ("two", archive(1));
}

TEST_F(Session, NamesNearlyThoseOfSettings_AreFiles) {
  beginAndConnect();
  for (const std::string name : {"setgroup", "SETGROUP.x", "xsetdrive.", "setdrives.", ""}) {
    EXPECT_EQ("\x06", exchange(openRecord(name))) << name;
    EXPECT_EQ("\x06", exchange(dataRecord(0, name + "!"))) << name;
  }
  exchange("\x04");
  EXPECT_EQ(0, end());
  EXPECT_EQ("setgroup!", archive(0));
  EXPECT_EQ("!", archive(4));
}

TEST_F(Session, FailedOpen_EndsWithMinusFive) {
  installer().sourceDir = root_ + "/absent/source";
  beginAndConnect();
  EXPECT_EQ("\x04", exchange(openRecord("a")));
  EXPECT_EQ(-5, end());
  EXPECT_EQ(kErrorHead + std::string("COM1 download failed -5."), outcome());
}

TEST_F(Session, FileWithoutPositions_RefusesItsBlocks) {
  installer().sourceDir = root_;
  const std::string path = root_ + "/upload-0.zip";
  ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
  const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK);
  beginAndConnect();
  EXPECT_EQ("\x06", exchange(openRecord("a")));
  EXPECT_EQ("\x04", exchange(dataRecord(0, "a")));
  EXPECT_EQ(-5, end());
  close(reader);
}

TEST_F(Session, FullDisk_RefusesTheBlockThatMeetsIt) {
  installer().sourceDir = root_;
  ASSERT_EQ(0, symlink("/dev/full", (root_ + "/upload-0.zip").c_str()));
  beginAndConnect();
  EXPECT_EQ("\x06", exchange(openRecord("a")));
  EXPECT_EQ("\x04", exchange(dataRecord(0, "a")));
  EXPECT_EQ(-5, end());
}

TEST_F(Session, LongSourceDirectory_CutsThePathAt127Characters) {
  const std::string folder = root_ + "/" + std::string(127 - root_.size() - 1 - 6, 'd');
  ASSERT_EQ(0, mkdir(folder.c_str(), 0755));
  installer().sourceDir = folder;
  beginAndConnect();
  EXPECT_EQ("\x06", exchange(openRecord("a")));
  exchange("\x04");
  EXPECT_EQ(0, end());
  EXPECT_EQ(0, access((folder + "/uploa").c_str(), F_OK));
}

TEST_F(Session, CloseWithoutAFile_IsAcknowledged) {
  beginAndConnect();
  EXPECT_EQ("\x06", exchange(signalRecord('C')));
  EXPECT_EQ("\x06", exchange(textRecord('R', "x")));
  EXPECT_EQ("\x06", exchange(signalRecord('S')));
  EXPECT_EQ("\x06", exchange(signalRecord('U')));
  exchange("\x04");
  EXPECT_EQ(0, end());
}

TEST_F(Session, EachMessage_ShowsTheProgressPageAnew) {
  beginAndConnect(4);
  EXPECT_EQ("\x06", exchange(textRecord('M', "hello.zip 10 %")));
  EXPECT_EQ("\x06", exchange(textRecord('M', "<b>")));
  exchange("\x04");
  EXPECT_EQ(0, end());
  const std::vector<ShownPage> pages = FakeGui::instance().shown();
  ASSERT_EQ(5U, pages.size());
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ("download-ddl.html", pages[i].page);
    EXPECT_FALSE(pages[i].synchronous);
    EXPECT_TRUE(pages[i].plainNumbers);
    EXPECT_EQ("COM2", pages[i].vars.at("portname"));
    EXPECT_EQ(pages[0].callback, pages[i].callback);
    EXPECT_EQ(pages[0].data, pages[i].data);
  }
  EXPECT_EQ(0U, pages[0].vars.count("message"));
  EXPECT_EQ("hello.zip 10 %", pages[1].vars.at("message"));
  EXPECT_EQ("<b>", pages[2].vars.at("message"));
  EXPECT_EQ("<b>", pages[4].vars.at("message"));  // the same variables serve the outcome
}

TEST_F(Session, AbortWhileTheHostIsSilent_ShowsDownloadAborted) {
  beginAndConnect();
  FakeGui::instance().report(0, 1);
  EXPECT_EQ(-2, end());
  EXPECT_EQ("<span style='color:#f00'><b>Download aborted</b></span><br>", outcome());
  EXPECT_EQ((Names{"download-ddl.html", "result.html"}), FakeGui::instance().shownNames());
  EXPECT_EQ(0, installer().installations);
  EXPECT_EQ(Names(), FakeController::instance().commands());
}

TEST_F(Session, AbortFromThePageInEachState_EndsWithMinusTwoAndEOT) {
  Calls::instance().timeFactor = kFar;  // the byte's second must not be over before the abort
  const std::string whole[] = {"", openRecord("a"), dataRecord(0, "half")};
  std::string before;
  for (std::size_t records = 0; records < 3; ++records) {
    before += whole[records];
    for (const State& state : kStates) {
      FakeGui::instance().reset();
      beginAndConnect();
      feed(line_, before + state.bytes);
      FakeGui::instance().report(0, 1);
      line_.send("~");  // not to wait out the second
      EXPECT_EQ(-2, end()) << state.name;
      EXPECT_EQ("<span style='color:#f00'><b>Download aborted</b></span><br>", outcome()) << state.name;
      EXPECT_EQ(std::string(records, '\x06') + '\x04', line_.pending()) << state.name;
    }
  }
  EXPECT_EQ(0, installer().installations);
}

TEST_F(Session, AbortBetweenRecords_EndsWithMinusTwoWithoutAReply) {
  const std::string whole[] = {openRecord("a"), dataRecord(0, "half"), textRecord('M', "half"), signalRecord('C')};
  std::string before;
  std::string answers;
  for (const std::string& record : whole) {
    before += record;
    answers += '\x06';
    beginAndConnect();
    feed(line_, before);
    FakeGui::instance().report(0, 1);
    EXPECT_EQ(-2, end());
    EXPECT_EQ(answers, line_.pending());
  }
}

TEST_F(Session, OtherReportsOfThePage_DoNotAbort) {
  beginAndConnect();
  FakeGui::instance().report(0, 0);
  FakeGui::instance().report(0, -1);
  FakeGui::instance().report(0, 2);
  FakeGui::instance().report(1, 1);
  EXPECT_EQ("\x06", exchange(signalRecord('S')));
  exchange("\x04");
  EXPECT_EQ(0, end());
}

TEST_F(Session, ReportsWithoutAResult_AreNotLookedInto) {
  beginAndConnect();
  const ShownPage page = FakeGui::instance().shown().front();
  for (const int type : {1, 2, -1}) page.callback(page.data, type, nullptr);
  EXPECT_EQ("\x06", exchange(signalRecord('S')));
  exchange("\x04");
  EXPECT_EQ(0, end());
}

TEST_F(Session, AbortInTheMiddleOfAFile_LeavesWhatCameAndInstallsNothing) {
  beginAndConnect();
  exchange(openRecord("a"));
  exchange(dataRecord(0, "half"));
  FakeGui::instance().report(0, 1);
  EXPECT_EQ(-2, end());
  EXPECT_EQ("half", archive(0));
  EXPECT_EQ(0, installer().installations);
}

TEST_F(Session, FileStillOpenAtTheEnd_IsInstalledAndClosedAfterTheOutcome) {
  installer().onInstall = [this] { EXPECT_EQ("whole", archive(0)); };
  beginAndConnect();
  exchange(openRecord("a"));
  exchange(dataRecord(0, "whole"));
  exchange("\x04");
  EXPECT_EQ(0, end());
  EXPECT_EQ(1, installer().installations);
}

TEST_F(Session, AbortBeforeTheDeviceIsOpen_IsForgotten) {
  // The receiver clears the flag when it has opened the device: the operator presses again.
  FakeGui::instance().onAsync([](const ShownPage&) { FakeGui::instance().report(0, 1); });
  beginAndConnect();
  EXPECT_EQ("\x06", exchange(signalRecord('S')));
  exchange("\x04");
  EXPECT_EQ(0, end());
}

TEST_F(Session, AbortPressedAfterAnExceptionEndedTheSession_DoesNoHarm) {
  installer().onInstall = [] { throw std::bad_alloc(); };
  bool thrown = false;
  untilReady([&] {
    thread_ = std::thread([&thrown] {
      onVanishingStack([&thrown] {
        Calls::thisThreadReceives();
        try {
          download_ddl(3);
        } catch (const std::bad_alloc&) {
          thrown = true;
        }
      });
    });
  });
  exchange("\x04");
  end();
  EXPECT_TRUE(thrown);
  FakeGui::instance().report(0, 1);  // the page is up still
  installer().onInstall = nullptr;
  beginAndConnect();
  EXPECT_EQ("\x06", exchange(signalRecord('S')));
  exchange("\x04");
  EXPECT_EQ(0, end());
}
