#include "shell/install.h"

#include <jxapp.h>
#include <pthread.h>
#include <zorguiprt.h>
#include <zorhtml.h>

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <ctime>
#include <exception>

#include "base/ignore.h"
#include "base/text.h"
#include "shell/controller.h"

namespace {

using zorhtml::TimeStamp;

constexpr long kLongestFinishSeconds = 10;
constexpr long kFinishCheckNs = 100000000;

// Held for the whole of one installation and its notification.
pthread_mutex_t installLock = PTHREAD_MUTEX_INITIALIZER;

// Set once, when the program ends. Looked at under the lock: whoever waits for his turn then gets it and finds it set.
std::atomic<bool> finishing{false};

class InstallGuard {
 public:
  InstallGuard() { pthread_mutex_lock(&installLock); }
  ~InstallGuard() { pthread_mutex_unlock(&installLock); }
  InstallGuard(const InstallGuard&) = delete;
  InstallGuard& operator=(const InstallGuard&) = delete;
};

// Warnings share the red of errors, deliberately: there is no third colour.
const char* spanOf(const std::string& line) {
  if (base::beginsWith(line, "Error:") || base::beginsWith(line, "Warning:")) return "<span style='color:#f00'>";
  if (base::beginsWith(line, "List of installed applications")) return "<span style='color:#0a0'>";
  return nullptr;
}

// "%S" ends at a zero byte, so that the line goes through it piece by piece, with a blank for each zero byte.
std::string escape(const std::string& line) {
  std::string html;
  for (std::size_t at = 0;;) {
    html += zorgui::uiPrint("%S", line.c_str() + at);
    at = line.find('\0', at);
    if (at++ == std::string::npos) return html;
    html += ' ';
  }
}

std::string toHtml(const std::string& line) {
  const char* const span = spanOf(line);
  return span == nullptr ? escape(line) : span + escape(line) + "</span>";
}

}  // namespace

void installPackages(std::string& text) {
  const InstallGuard guard;
  if (finishing)
    return installLogLine(&text, "Error: the program on the terminal ends: nothing was installed, send again\n");
  base::ignore(jxapp::jxInstall(installLogLine, &text));  // its messages are the report
  notifyController("libmac_scan_manifests");
}

void installLogLine(void* data, const char* format, ...) {
  va_list args;
  va_start(args, format);
  try {
    *static_cast<std::string*>(data) += toHtml(zorgui::uiPrintV(format, args));
  } catch (const std::exception&) {
    // A message that there is no memory for is lost; the installer, which called, must not see the exception.
  }
  va_end(args);
}

// By trial, because POSIX has no wait for a mutex that ends by the monotonic clock.
bool finishInstallations() {
  finishing = true;
  constexpr timespec kPause{0, kFinishCheckNs};
  const TimeStamp deadline = TimeStamp::Monotonic() + TimeStamp(kLongestFinishSeconds, 0);
  while (pthread_mutex_trylock(&installLock) != 0) {
    if (!(TimeStamp::Monotonic() < deadline)) return false;
    nanosleep(&kPause, nullptr);
  }
  pthread_mutex_unlock(&installLock);
  return true;
}
