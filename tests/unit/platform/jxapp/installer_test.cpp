#include "platform/linux/jxapp/installer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <functional>

#include "tests/unit/platform/jxapp/scratch.h"
#include "tests/unit/platform/jxapp/signing.h"
#include "tests/unit/platform/jxapp/zip_bytes.h"

namespace {

using jxinstall::InstallOptions;
using Files = std::map<std::string, std::string>;
using Lines = std::vector<std::string>;

struct Log {
  Lines messages;
  std::function<void(const std::string&)> onMessage;
};

void record(void* data, const char* format, ...) {
  char message[65536];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(message, sizeof message, format, arguments);
  va_end(arguments);
  auto* const log = static_cast<Log*>(data);
  log->messages.emplace_back(message);
  if (log->onMessage) log->onMessage(message);
}

class Installer : public testing::Test {
 protected:
  // Runs the installer and returns its messages, each one call of the log.
  Lines install(int expectedResult = 0) {
    log_.messages.clear();
    InstallOptions options;
    options.root = root_.path();
    options.lockTimeoutMs = lockTimeoutMs_;
    EXPECT_EQ(installAll(options, record, &log_), expectedResult);
    return log_.messages;
  }

  void place(const std::string& file, const std::string& bytes) { root_.write("source/" + file, bytes); }

  static std::string package(const std::string& version, const Files& files = {{"file", "content"}},
                             const std::string& name = "hello") {
    return zipBytes(packageEntries(name, version, files));
  }

  static std::string signedPackage(const Identity& signer) {
    std::vector<RawEntry> entries = packageEntries("hello", "1.0.0", {{"file", "content"}});
    entries.emplace_back();
    entries.back().name = "manifest.json.p7s";
    entries.back().content = signatureOf(signer, entries[0].content);
    return zipBytes(entries);
  }

  static std::string removal(const std::vector<RawEntry>& others = {}) {
    std::vector<RawEntry> entries(1);
    entries[0].name = "manifest.json";
    entries[0].content = R"({"name":"hello","remove":true})";
    entries.insert(entries.end(), others.begin(), others.end());
    return zipBytes(entries);
  }

  static std::string packageLine(const std::string& file, const std::string& bytes) {
    return "Package " + file + ": " + std::to_string(bytes.size()) + " bytes, sha256 " + sha256Of(bytes) + "\n";
  }

  void setPolicy(const std::string& policy) { root_.write("terminal.json", R"({"signatures":")" + policy + "\"}"); }

  static constexpr const char* kNone = "List of installed applications:\n  (none)\n";

  Scratch root_;
  Log log_;
  int lockTimeoutMs_ = 0;
};

TEST_F(Installer, NothingToInstall_ListsNone) {
  EXPECT_EQ(install(), Lines{kNone});
  root_.write("source/readme.txt", "");
  EXPECT_EQ(install(), Lines{kNone});
  EXPECT_TRUE(root_.exists("source/readme.txt"));
}

TEST_F(Installer, GoodPackage_IsInstalledAndItsArchiveRemoved) {
  const std::string bytes = package("1.0.0");
  place("upload-0.zip", bytes);
  EXPECT_EQ(install(), (Lines{packageLine("upload-0.zip", bytes), "Warning: hello 1.0.0 is not signed\n",
                              "Installed hello 1.0.0\n", "List of installed applications:\n  hello 1.0.0\n"}));
  EXPECT_EQ(root_.read("apps/hello/file"), "content");
  EXPECT_TRUE(root_.tree("source").empty());
}

TEST_F(Installer, AnotherVersionUpdates_TheSameOneReinstalls) {
  setPolicy("off");
  const std::string old = package("1.0.0", {{"old", "x"}, {"file", "1"}});
  const std::string next = package("1.1.0", {{"file", "2"}});
  place("upload-0.zip", old);
  place("upload-1.zip", next);
  place("upload-2.zip", next);
  place("upload-3.zip", old);
  EXPECT_EQ(install(),
            (Lines{packageLine("upload-0.zip", old), "Installed hello 1.0.0\n", packageLine("upload-1.zip", next),
                   "Updated hello 1.0.0 -> 1.1.0\n", packageLine("upload-2.zip", next), "Reinstalled hello 1.1.0\n",
                   packageLine("upload-3.zip", old), "Warning: hello 1.0.0 is older than the installed 1.1.0\n",
                   "Updated hello 1.1.0 -> 1.0.0\n", "List of installed applications:\n  hello 1.0.0\n"}));
  EXPECT_EQ(root_.read("apps/hello/file"), "1");
  EXPECT_TRUE(root_.exists("apps/hello/old"));
}

TEST_F(Installer, AnUpdate_LeavesNothingOfTheOld) {
  place("upload-0.zip", package("1.0.0", {{"old/file", "x"}}));
  place("upload-1.zip", package("1.1.0", {{"new", "y"}}));
  install();
  EXPECT_FALSE(root_.exists("apps/hello/old"));
  EXPECT_EQ(root_.tree("apps").size(), 3U);
}

TEST_F(Installer, Archives_AreTakenInTheOrderOfTheirNumbers) {
  const Lines names = {"upload-0.zip",
                       "upload-2.zip",
                       "upload-10.zip",
                       "upload-99999999999999999999998.zip",
                       "upload-99999999999999999999999.zip",
                       "upload-100000000000000000000000.zip"};
  for (const std::string& name : names) place(name, "x");
  Lines handled;
  for (const std::string& message : install(-1)) {
    if (message.rfind("Error: ", 0) == 0) handled.push_back(message.substr(7, message.find(':', 7) - 7));
  }
  EXPECT_EQ(handled, names);
}

TEST_F(Installer, OtherNames_AreLeftAlone) {
  const Lines names = {"upload-.zip",   "upload-1.ZIP", "upload-1.zip.part", "upload--1.zip",
                       "upload-1a.zip", "Upload-1.zip", "upload-+1.zip",     "upload.zip"};
  for (const std::string& name : names) place(name, "x");
  EXPECT_EQ(install(), Lines{kNone});
  EXPECT_EQ(root_.tree("source").size(), names.size());
}

TEST_F(Installer, BadArchive_IsAnErrorThatChangesNothing) {
  place("upload-0.zip", package("1.0.0"));
  install();
  const Lines before = root_.tree("apps");
  place("upload-0.zip", "junk");
  EXPECT_EQ(install(-1), (Lines{packageLine("upload-0.zip", "junk"), "Error: upload-0.zip: is not a zip archive\n",
                                "List of installed applications:\n  hello 1.0.0\n"}));
  std::vector<RawEntry> entries = packageEntries("hello", "2.0.0", {{"file", "content"}});
  entries[1].content = "changed";
  place("upload-0.zip", zipBytes(entries));
  EXPECT_EQ(install(-1)[1], "Error: upload-0.zip: \"file\": does not match its digest in manifest.json\n");
  EXPECT_EQ(root_.tree("apps"), before);
  EXPECT_TRUE(root_.tree("source").empty());
}

TEST_F(Installer, EmptyArchive_IsAnError) {
  place("upload-0.zip", "");
  EXPECT_EQ(install(-1)[1], "Error: upload-0.zip: is not a zip archive\n");
  EXPECT_EQ(log_.messages[0], packageLine("upload-0.zip", ""));
}

TEST_F(Installer, ABadArchiveBetweenGoodOnes_StopsNoneOfThem) {
  place("upload-0.zip", package("1", {}, "a"));
  place("upload-1.zip", "junk");
  place("upload-2.zip", package("2", {}, "b"));
  EXPECT_EQ(install(-1).back(), "List of installed applications:\n  a 1\n  b 2\n");
}

TEST_F(Installer, ANumberBeyondDoubleInAManifest_IsAnErrorOfThatPackageAlone) {
  std::vector<RawEntry> entries = packageEntries("bad", "1.0.0", {});
  entries.front().content = R"({"name":"bad","version":"1.0.0","files":{},"size":1e999})";
  place("upload-0.zip", zipBytes(entries));
  place("upload-1.zip", package("1.0.0"));
  const Lines lines = install(-1);
  ASSERT_EQ(lines.size(), 6U);
  EXPECT_EQ(lines[1], "Error: upload-0.zip: manifest.json: has a number beyond the range of double\n");
  EXPECT_EQ(lines[4], "Installed hello 1.0.0\n");
  EXPECT_FALSE(root_.exists("source/upload-0.zip"));
}

TEST_F(Installer, NoEntryLandsOutside) {
  for (const char* name : {"../outside", "/outside", "a/../../outside", "..", "a\\..\\..\\outside"}) {
    RawEntry entry;
    entry.name = name;
    std::vector<RawEntry> entries = packageEntries("hello", "1", {});
    entries.push_back(entry);
    place("upload-0.zip", zipBytes(entries));
    EXPECT_EQ(install(-1)[1].rfind("Error: upload-0.zip: \"", 0), 0U) << name;
    EXPECT_EQ(root_.tree(), (Lines{"apps/", "source/"})) << name;
  }
}

TEST_F(Installer, WhatIsNoFile_IsAnErrorAndNeverOpened) {
  root_.write("source/x", "");
  root_.write("target", package("1.0.0"));
  ASSERT_EQ(symlink("../target", (root_.path() + "/source/upload-0.zip").c_str()), 0);
  ASSERT_EQ(mkfifo((root_.path() + "/source/upload-1.zip").c_str(), 0600), 0);
  EXPECT_EQ(install(-1),
            (Lines{"Error: upload-0.zip: is a link, not a file\n", "Error: upload-1.zip: is not a file\n", kNone}));
  EXPECT_EQ(root_.tree("source"), Lines{"x="});
  EXPECT_TRUE(root_.exists("target"));
}

TEST_F(Installer, AFolderNamedAsAnArchive_IsAnErrorAndStays) {
  root_.write("source/upload-0.zip/x", "");
  EXPECT_EQ(install(-1)[0], "Error: upload-0.zip: is not a file\n");
  EXPECT_TRUE(root_.exists("source/upload-0.zip/x"));
}

TEST_F(Installer, Modes_DoNotDependOnTheProcess) {
  std::vector<RawEntry> entries = packageEntries("hello", "1", {{"bin/run", "x"}, {"text", "y"}});
  entries[1].mode = 0104700;
  entries[2].mode = 0100000;
  place("upload-0.zip", zipBytes(entries));
  const mode_t before = umask(0077);
  install();
  umask(before);
  EXPECT_EQ(root_.mode("apps/hello"), 0755U);
  EXPECT_EQ(root_.mode("apps/hello/bin"), 0755U);
  EXPECT_EQ(root_.mode("apps/hello/bin/run"), 0755U);
  EXPECT_EQ(root_.mode("apps/hello/text"), 0644U);
}

TEST_F(Installer, WhatWasLeftByAKilledOne_IsSwept) {
  root_.write("apps/.new-hello/file", "");
  root_.write("apps/.old-other/manifest.json", manifestOf("other", "3", {}));
  EXPECT_EQ(install(), Lines{"List of installed applications:\n  other 3\n"});
  EXPECT_FALSE(root_.exists("apps/.new-hello"));
}

TEST_F(Installer, AnApplicationWithoutReadableManifest_IsListedAndReplaced) {
  root_.write("apps/hello/manifest.json", "{");
  EXPECT_EQ(install(), Lines{"List of installed applications:\n  hello (manifest unreadable)\n"});
  place("upload-0.zip", package("1.0.0"));
  EXPECT_EQ(install()[2], "Installed hello 1.0.0\n");
}

TEST_F(Installer, SourceThatIsNoDirectory_IsAnError) {
  root_.write("source", "");
  EXPECT_EQ(install(-1), (Lines{"Error: the source directory cannot be read: Not a directory\n", kNone}));
}

TEST_F(Installer, RootThatIsMissing_IsAnError) {
  InstallOptions options;
  options.root = root_.path() + "/none";
  EXPECT_EQ(installAll(options, record, &log_), -1);
  EXPECT_EQ(log_.messages, Lines{"Error: the platform root cannot be opened: No such file or directory\n"});
}

TEST_F(Installer, WhileAnotherInstalls_NothingIsTouched) {
  place("upload-0.zip", package("1.0.0"));
  const int other = open(root_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(flock(other, LOCK_EX), 0);
  lockTimeoutMs_ = 50;
  EXPECT_EQ(install(-1), Lines{"Error: another installation is still running after 50 ms\n"});
  EXPECT_TRUE(root_.exists("source/upload-0.zip"));
  close(other);
  EXPECT_EQ(install()[2], "Installed hello 1.0.0\n");
}

TEST_F(Installer, AnArchiveThatANewUploadHasTakenOver_StaysForIt) {
  const std::string next = package("2.0.0");
  place("upload-0.zip", package("1.0.0"));
  log_.onMessage = [&](const std::string& message) {
    if (message.rfind("Installed ", 0) == 0) place("upload-0.zip", next);
  };
  EXPECT_EQ(install()[2], "Installed hello 1.0.0\n");
  EXPECT_EQ(root_.read("source/upload-0.zip"), next);
  log_.onMessage = nullptr;
  EXPECT_EQ(install()[2], "Updated hello 1.0.0 -> 2.0.0\n");
  EXPECT_TRUE(root_.tree("source").empty());
}

TEST_F(Installer, AnArchiveThatIsCutWhileItIsRead_IsAnError) {
  place("upload-0.zip", package("1.0.0"));
  log_.onMessage = [&](const std::string& message) {
    if (message.rfind("Package ", 0) != 0) return;
    EXPECT_EQ(0, truncate((root_.path() + "/source/upload-0.zip").c_str(), 10));
  };
  EXPECT_EQ(install(-1)[1], "Error: upload-0.zip: became shorter while it was read\n");
  EXPECT_FALSE(root_.exists("apps/hello"));
}

TEST_F(Installer, NamesInMessages_HaveNoControlCharactersAndNoFormats) {
  std::vector<RawEntry> entries = packageEntries("hello", "1", {});
  entries.emplace_back();
  entries.back().name = "a\nError: %s%n\x1b[2J<b>";
  place("upload-0.zip", zipBytes(entries));
  EXPECT_EQ(install(-1)[1],
            "Error: upload-0.zip: \"a?Error: %s%n?[2J<b>\": the name has a character that is not printable ASCII\n");
}

TEST_F(Installer, Removal_TakesTheApplicationAwayOrWarnsThatThereIsNone) {
  setPolicy("off");
  place("upload-0.zip", package("1.0.0"));
  install();
  const std::string bytes = removal();
  place("upload-0.zip", bytes);
  place("upload-1.zip", bytes);
  EXPECT_EQ(install(), (Lines{packageLine("upload-0.zip", bytes), "Removed hello\n", packageLine("upload-1.zip", bytes),
                              "Warning: hello is not installed, nothing was removed\n", kNone}));
  EXPECT_EQ(root_.tree(), (Lines{"apps/", "source/", "terminal.json={\"signatures\":\"off\"}"}));
}

TEST_F(Installer, RemovalThatIsNotSigned_IsJudgedAsAnInstallation) {
  root_.write("apps/hello/manifest.json", "{");
  setPolicy("required");
  place("upload-0.zip", removal());
  EXPECT_EQ(install(-1)[1], "Error: upload-0.zip: the removal of hello is not signed\n");
  EXPECT_TRUE(root_.exists("apps/hello/manifest.json"));
  setPolicy("warn");
  place("upload-0.zip", removal());
  const Lines lines = install();
  EXPECT_EQ(lines[1], "Warning: the removal of hello is not signed\n");
  EXPECT_EQ(lines[2], "Removed hello\n");
}

TEST_F(Installer, RemovalWithFiles_IsRefused) {
  RawEntry file;
  file.name = "file";
  place("upload-0.zip", removal({file}));
  EXPECT_EQ(install(-1)[1], "Error: upload-0.zip: \"file\": is not listed in manifest.json\n");
}

TEST_F(Installer, OlderVersion_IsJudgedByThePolicyForDowngrades) {
  const auto downgrade = [&](const std::string& policy, int result) {
    root_.write("terminal.json", R"({"signatures":"off","downgrades":")" + policy + "\"}");
    root_.write("apps/hello/manifest.json", manifestOf("hello", "1.10", {}));
    place("upload-0.zip", package("1.9"));
    return install(result)[1];
  };
  EXPECT_EQ(downgrade("allow", 0), "Updated hello 1.10 -> 1.9\n");
  EXPECT_EQ(downgrade("warn", 0), "Warning: hello 1.9 is older than the installed 1.10\n");
  EXPECT_EQ(downgrade("refuse", -1), "Error: upload-0.zip: hello 1.9 is older than the installed 1.10\n");
  EXPECT_TRUE(root_.read("apps/hello/manifest.json").find("1.10") != std::string::npos);
  EXPECT_EQ(downgrade("off", -1), "Error: upload-0.zip: terminal.json has no readable \"downgrades\" policy\n");
  // What is no older passes under every policy.
  root_.write("terminal.json", R"({"signatures":"off","downgrades":"refuse"})");
  for (const char* version : {"1.10", "1.010", "1.11"}) {
    place("upload-0.zip", package(version));
    install();
  }
  // Nothing can be said of a version that cannot be read.
  root_.write("apps/hello/manifest.json", "{");
  place("upload-0.zip", package("1.0"));
  EXPECT_EQ(install()[1], "Installed hello 1.0\n");
}

struct PolicyCase {
  const char* policy;
  bool trusted;
  std::string line;
};

class Policy : public Installer, public testing::WithParamInterface<PolicyCase> {};

TEST_P(Policy, OfASignature_DecidesTheMessage) {
  const Identity signer = makeIdentity({});
  if (GetParam().trusted) root_.write("certs/signer.pem", signer.certificatePem());
  if (*GetParam().policy != '\0') setPolicy(GetParam().policy);
  place("upload-0.zip", signedPackage(signer));
  const bool refused = GetParam().line.rfind("Error: ", 0) == 0;
  const Lines messages = install(refused ? -1 : 0);
  ASSERT_GE(messages.size(), 3U);
  EXPECT_EQ(messages[1], GetParam().line);
  EXPECT_EQ(messages.back(), refused ? kNone : "List of installed applications:\n  hello 1.0.0\n");
  EXPECT_EQ(root_.exists("apps/hello"), !refused);
}

const std::string kForeign =
    "hello 1.0.0 is signed by a certificate that does not chain to one in certs/: \"CN=Signer\"\n";
const PolicyCase kPolicies[] = {
    {"off", false, "Installed hello 1.0.0\n"},
    {"off", true, "Installed hello 1.0.0\n"},
    {"warn", false, "Warning: " + kForeign},
    {"warn", true, "Installed hello 1.0.0\n"},
    {"", false, "Warning: " + kForeign},
    {"required", false, "Error: upload-0.zip: " + kForeign},
    {"required", true, "Installed hello 1.0.0\n"},
    {"never", true, "Error: upload-0.zip: terminal.json has no readable \"signatures\" policy\n"},
};
INSTANTIATE_TEST_SUITE_P(AllPolicies, Policy, testing::ValuesIn(kPolicies));

TEST_F(Installer, UnsignedPackageWhereSignaturesAreRequired_IsAnError) {
  setPolicy("required");
  place("upload-0.zip", package("1.0.0"));
  EXPECT_EQ(install(-1)[1], "Error: upload-0.zip: hello 1.0.0 is not signed\n");
}

}  // namespace
