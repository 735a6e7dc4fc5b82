#include "platform/linux/zorguiprt/terminal_screen.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <utility>

#include "platform/linux/support/root.h"
#include "platform/linux/zorguiprt/small_file.h"
#include "platform/linux/zorhtml/page_processor.h"

namespace jxplatform {
namespace {

constexpr const char* kDefaultAddress = "127.0.0.1:6380";

std::string environment(const char* name, const char* otherwise) {
  const char* const value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : otherwise;
}

// One line, whatever a script put into its error.
void complain(std::string message) {
  for (char& c : message) {
    if (static_cast<unsigned char>(c) < ' ') c = ' ';
  }
  std::fprintf(stderr, "libzorguiprt: %s\n", message.c_str());
}

}  // namespace

// Never destroyed: connections and callbacks may go on while the program ends. end() leaves nothing behind.
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

bool TerminalScreen::prepare(PageContent& content) {
  std::string text;
  if (files_.read(content.page, text) != PageFiles::Outcome::kRead) {
    complain("cannot read the page " + content.page + " in " + files_.folder() + ": " + std::strerror(errno));
    return false;
  }
  ProcessedPage processed = processPage(text, content.vars);
  for (const std::string& problem : processed.problems) complain(content.page + ": " + problem);
  content.html = std::move(processed.html);
  return serve();
}

bool TerminalScreen::serve() {
  const std::lock_guard<std::mutex> lock(serverMutex_);
  if (server_ != nullptr) return true;
  const std::string reason = startServer();
  if (!reason.empty())
    complain("cannot show pages at " + environment("JXPLATFORM_SCREEN", kDefaultAddress) + ": " + reason);
  return reason.empty();
}

std::string TerminalScreen::startServer() {
  ServerAddress address;
  if (!parseServerAddress(environment("JXPLATFORM_SCREEN", kDefaultAddress), address)) return "not ADDRESS:PORT";
  auto server = std::make_unique<ScreenServer>(screen_, files_, environment("GUIPRT_APPNAME", "Terminal"));
  std::string reason = server->start(address);
  if (!reason.empty()) return reason;
  server_ = std::move(server);
  if (!replaceFile(urlFile_, server_->url() + "\n")) complain("cannot write " + urlFile_ + ": " + std::strerror(errno));
  return {};
}

int TerminalScreen::showSynchronous(Vars& vars, const std::string& page, zorgui::UICallback callback, void* data) {
  screen_.endPage();
  PageContent content{page, vars, {}};
  if (!prepare(content)) return -1;
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
  PageContent content{page, vars, {}};
  if (prepare(content)) {
    screen_.showAsynchronous(content, callback, data);
  } else {
    screen_.reportUnshown(callback, data);
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
  if (!server_->stop()) return;
  server_ = nullptr;
}

}  // namespace jxplatform

namespace zorgui {

int uiInvokeURL(int /*region*/, int /*flags*/, std::map<std::string, std::string>& vars, const std::string& page,
                UICallback callback, void* data) {
  try {
    return jxplatform::TerminalScreen::instance().showSynchronous(vars, page, callback, data);
  } catch (const std::exception& error) {
    jxplatform::complain(page + ": " + error.what());
    return -1;
  }
}

void uiInvokeURLAsync(int /*region*/, int /*flags*/, const std::map<std::string, std::string>& vars,
                      const std::string& page, UIAsyncCallback callback, void* data) {
  try {
    jxplatform::TerminalScreen::instance().showAsynchronous(vars, page, callback, data);
  } catch (const std::exception& error) {
    jxplatform::complain(page + ": " + error.what());
  }
}

}  // namespace zorgui
