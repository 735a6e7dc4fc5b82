#include "platform/linux/zorguiprt/terminal_screen.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <utility>

#include "base/atomic_file.h"
#include "base/file_io.h"
#include "platform/linux/support/environment.h"
#include "platform/linux/support/root.h"
#include "platform/linux/zorguiprt/auto_result.h"
#include "platform/linux/zorguiprt/stand_in_page.h"
#include "platform/linux/zorhtml/page_processor.h"

namespace jxplatform {
namespace {

constexpr const char* kDefaultAddress = "127.0.0.1:6380";

// One line, whatever a script put into its error.
void complain(std::string message) {
  for (char& c : message) {
    if (static_cast<unsigned char>(c) < ' ') c = ' ';
  }
  std::fprintf(stderr, "libzorguiprt: %s\n", message.c_str());
}

void complainOf(const std::string& page, const std::exception& error) noexcept {
  try {
    complain(page + ": " + error.what());
  } catch (const std::exception&) {
    std::fputs("libzorguiprt: a page cannot be shown for want of memory\n", stderr);
  }
}

}  // namespace

// Never destroyed: callbacks may go on while the program ends. end() leaves nothing behind.
TerminalScreen& TerminalScreen::instance() {
  static auto* const screen = new TerminalScreen;
  return *screen;
}

TerminalScreen::TerminalScreen()
    : urlFile_(root() + "/screen.url"),
      files_(pagesFolder()),
      ids_(root() + "/screen.run"),
      screen_([this] { return ids_.next(); }) {
  std::atexit([] { instance().end(); });
}

void TerminalScreen::fill(PageContent& content) const {
  const std::string text = files_.read(content.page);
  ProcessedPage processed = processPage(text, content.vars);
  for (const std::string& problem : processed.problems) complain(content.page + ": " + problem);
  content.html = std::move(processed.html);
  content.autoResult = autoResult(text);
}

void TerminalScreen::complainUnread(const std::string& page, const Failure& failure) const {
  complain("cannot read the page " + page + " in " + files_.folder() + ": " + failure.what());
}

// False when nobody can be shown a page, which is told then.
bool TerminalScreen::serve() {
  const std::lock_guard<std::mutex> lock(serverMutex_);
  try {
    if (server_ == nullptr) startServer();
  } catch (const Failure& failure) {
    complain("cannot show pages at " + environment("JXPLATFORM_SCREEN", kDefaultAddress) + ": " + failure.what());
    return false;
  }
  if (!urlWritten_) writeUrl();
  return true;
}

void TerminalScreen::startServer() {
  const auto address = parseServerAddress(environment("JXPLATFORM_SCREEN", kDefaultAddress));
  if (!address) throw Failure("not ADDRESS:PORT");
  auto server = std::make_unique<ScreenServer>(screen_, files_, environment("GUIPRT_APPNAME", "Terminal"));
  server->start(*address);
  server_ = std::move(server);
}

// Pages are shown without the file as well; it is tried again with the next page.
void TerminalScreen::writeUrl() {
  urlWritten_ = base::replaceFile(urlFile_, server_->url() + "\n", base::Flush::kNo, "." + std::to_string(getpid()));
  if (!urlWritten_) complain("cannot write " + urlFile_ + ": " + base::errorText(errno));
}

int TerminalScreen::showSynchronous(Vars& vars, const std::string& page, zorgui::UICallback callback, void* data) {
  screen_.endPage();
  PageContent content{page, vars, {}};
  try {
    fill(content);
  } catch (const Failure& failure) {
    complainUnread(page, failure);
    return -1;
  }
  if (!serve()) return -1;
  Vars shown = content.vars;
  auto result = screen_.waitForResult(screen_.showSynchronous(content), callback, data);
  if (!result) return -1;
  for (auto& [name, value] : result->vars) {
    if (value) {
      shown[name] = std::move(*value);
    } else {
      shown.erase(name);
    }
  }
  vars = std::move(shown);
  return result->result;
}

void TerminalScreen::showAsynchronous(const Vars& vars, const std::string& page, zorgui::UIAsyncCallback callback,
                                      void* data) {
  screen_.endPage();
  if (!putUp(vars, page, callback, data)) screen_.reportUnshown(callback, data);
}

// False when the page cannot be shown, for whatever reason.
bool TerminalScreen::putUp(const Vars& vars, const std::string& page, zorgui::UIAsyncCallback callback, void* data) {
  try {
    PageContent content{page, vars, {}};
    try {
      fill(content);
    } catch (const Failure& failure) {
      complainUnread(page, failure);
      content.html = standInPage(page, failure.what(), callback != nullptr);
      content.standsIn = true;
    }
    if (!serve()) return false;
    screen_.showAsynchronous(content, callback, data);
    return true;
  } catch (const std::exception& error) {
    complainOf(page, error);
    return false;
  }
}

void TerminalScreen::end() {
  screen_.close();
  const std::lock_guard<std::mutex> lock(serverMutex_);
  if (server_ == nullptr) return;
  std::string url;
  std::ifstream file(urlFile_);
  // Another program may have begun to show pages since.
  if (std::getline(file, url) && url == server_->url()) unlink(urlFile_.c_str());
  server_ = nullptr;
}

}  // namespace jxplatform

namespace zorgui {

int uiInvokeURL(int /*region*/, int /*flags*/, std::map<std::string, std::string>& vars, const std::string& page,
                UICallback callback, void* data) {
  try {
    return jxplatform::TerminalScreen::instance().showSynchronous(vars, page, callback, data);
  } catch (const std::exception& error) {
    jxplatform::complainOf(page, error);
    return -1;
  }
}

void uiInvokeURLAsync(int /*region*/, int /*flags*/, const std::map<std::string, std::string>& vars,
                      const std::string& page, UIAsyncCallback callback, void* data) {
  try {
    jxplatform::TerminalScreen::instance().showAsynchronous(vars, page, callback, data);
  } catch (const std::exception& error) {
    // There was no memory for the screen itself, and so no thread that could tell it.
    jxplatform::complainOf(page, error);
    jxplatform::reportGivenUp(callback, data);
  }
}

}  // namespace zorgui
