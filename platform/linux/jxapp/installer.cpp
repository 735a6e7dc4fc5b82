#include "platform/linux/jxapp/installer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <optional>
#include <thread>

#include "base/deadline.h"
#include "base/file_io.h"
#include "platform/linux/jxapp/disk_space.h"
#include "platform/linux/jxapp/failure.h"
#include "platform/linux/jxapp/package.h"
#include "platform/linux/jxapp/signature.h"
#include "platform/linux/jxapp/source_directory.h"
#include "platform/linux/jxapp/staging.h"
#include "platform/linux/jxapp/version_order.h"
#include "platform/linux/support/terminal_settings.h"

namespace jxinstall {
namespace {

using jxplatform::DowngradePolicy;
using jxplatform::SignaturePolicy;
using jxplatform::TerminalSettings;

// Holds the root for this installation alone; the system gives it back when the process dies.
class InstallationLock {
 public:
  // Throws Failure when another installation holds it for all of the time.
  InstallationLock(const std::string& root, int timeoutMs)
      : root_(open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (!root_) throw Failure("the platform root cannot be opened: " + base::errorText(errno));
    const base::Deadline end(timeoutMs);
    while (flock(root_.get(), LOCK_EX | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK && errno != EINTR)
        throw Failure("the platform root cannot be locked: " + base::errorText(errno));
      if (end.passed()) {
        throw Failure("another installation is still running after " + std::to_string(timeoutMs) + " ms");
      }
      std::this_thread::sleep_for(kPause);
    }
  }

 private:
  static constexpr std::chrono::milliseconds kPause{20};
  base::Descriptor root_;
};

class Installation {
 public:
  Installation(const InstallOptions& options, jxapp::InstallLog log, void* data)
      : options_(options), log_(log), data_(data) {}

  int run() {
    try {
      const InstallationLock lock(options_.root, options_.lockTimeoutMs);
      const ApplicationStore store(options_.root, options_.replacement);
      store.sweep();
      installSources(store);
      reportApplications(store);
    } catch (const Failure& failure) {
      error(failure.what());
    }
    return failed_ ? -1 : 0;
  }

 private:
  void line(const std::string& text) { log_(data_, "%s", (text + '\n').c_str()); }

  void error(const std::string& text) {
    failed_ = true;
    line("Error: " + text);
  }

  void installSources(const ApplicationStore& store) {
    const base::Descriptor source = openSourceDirectory(options_.root);
    std::vector<std::string> names;
    if (!source || !listArchives(source.get(), names)) {
      if (source || errno != ENOENT) error("the source directory cannot be read: " + base::errorText(errno));
      return;
    }
    for (const std::string& name : names) handle(source.get(), name, store);
  }

  // Whatever becomes of the package, the archive goes: a bad one would otherwise fail again each time.
  void handle(int source, const std::string& name, const ApplicationStore& store) {
    std::optional<SourceArchive> archive;
    try {
      archive.emplace(source, name);
      line("Package " + name + ": " + std::to_string(archive->size()) + " bytes, sha256 " + archive->digest());
      install(*archive, store);
    } catch (const Failure& failure) {
      error(name + ": " + failure.what());
    }
    if (archive && archive->isTakenOver(source)) return;
    if (unlinkat(source, name.c_str(), 0) != 0 && errno != ENOENT) {
      error(name + ": the archive cannot be removed: " + base::errorText(errno));
    }
  }

  void install(const SourceArchive& archive, const ApplicationStore& store) {
    const Package package = readPackage(archive.fd(), archive.size());
    if (package.manifest.remove) return remove(package, store);
    const std::string title = package.manifest.name + ' ' + package.manifest.version;
    const TerminalSettings settings = jxplatform::readTerminalSettings(options_.root);
    const std::string warning = checkSignature(package, title, settings);
    const std::optional<std::string> before = store.versionOf(package.manifest.name);
    const std::string older = before ? checkVersion(package.manifest, *before, settings) : "";
    checkDiskSpace(store.directory(), package);
    unpackAndCommit(archive.fd(), package, store);
    for (const std::string& text : {warning, older}) {
      if (!text.empty()) line("Warning: " + text);
    }
    line(before ? changeText(package.manifest, *before) : "Installed " + title);
  }

  // What is not there is no failure: a terminal that is told twice is as it is wanted.
  void remove(const Package& package, const ApplicationStore& store) {
    const std::string& name = package.manifest.name;
    const std::string warning =
        checkSignature(package, "the removal of " + name, jxplatform::readTerminalSettings(options_.root));
    const bool removed = store.remove(name);
    if (!warning.empty()) line("Warning: " + warning);
    line(removed ? "Removed " + name : "Warning: " + name + " is not installed, nothing was removed");
  }

  // Returns what to warn of.
  static std::string checkVersion(const Manifest& manifest, const std::string& before,
                                  const TerminalSettings& settings) {
    const DowngradePolicy policy = settings.downgrades.value_or(DowngradePolicy::kWarn);
    if (policy == DowngradePolicy::kAllow || compareVersions(manifest.version, before) >= 0) return "";
    std::string problem = manifest.name + ' ' + manifest.version + " is older than the installed " + before;
    if (policy == DowngradePolicy::kRefuse) throw Failure(problem);
    return problem;
  }

  // Returns what to warn of.
  std::string checkSignature(const Package& package, const std::string& title, const TerminalSettings& settings) const {
    // A policy that cannot be understood must not weaken the one that was meant.
    if (settings.signaturesMalformed) throw Failure("terminal.json has no readable \"signatures\" policy");
    if (settings.downgradesMalformed) throw Failure("terminal.json has no readable \"downgrades\" policy");
    const SignaturePolicy policy = settings.signatures.value_or(SignaturePolicy::kWarn);
    if (policy == SignaturePolicy::kOff) return "";
    const std::string problem = signatureProblem(options_.root + "/certs", package.manifestBytes, package.signature);
    if (problem.empty()) return "";
    if (policy == SignaturePolicy::kRequired) throw Failure(title + ' ' + problem);
    return title + ' ' + problem;
  }

  static void unpackAndCommit(int fd, const Package& package, const ApplicationStore& store) {
    const std::string& name = package.manifest.name;
    const base::Descriptor place = store.stage(name);
    try {
      unpackInto(place.get(), fd, package);
      store.commit(name);
    } catch (...) {
      store.discard(name);
      throw;
    }
  }

  static std::string changeText(const Manifest& manifest, const std::string& before) {
    if (before == manifest.version) return "Reinstalled " + manifest.name + ' ' + before;
    return "Updated " + manifest.name + ' ' + before + " -> " + manifest.version;
  }

  // One call for the whole list: the log colours a message by its beginning.
  void reportApplications(const ApplicationStore& store) {
    std::string text = "List of installed applications:";
    const std::vector<Application> applications = store.list();
    for (const Application& application : applications) {
      text += "\n  " + application.name + ' ' + application.version.value_or("(manifest unreadable)");
    }
    line(applications.empty() ? text + "\n  (none)" : text);
  }

  const InstallOptions& options_;
  jxapp::InstallLog log_;
  void* data_;
  bool failed_ = false;
};

}  // namespace

int installAll(const InstallOptions& options, jxapp::InstallLog log, void* data) {
  return Installation(options, log, data).run();
}

}  // namespace jxinstall
