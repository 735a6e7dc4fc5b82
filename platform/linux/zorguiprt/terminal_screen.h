// The process's one screen, with its server, from the first page to the program's end.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "platform/linux/support/failure.h"
#include "platform/linux/zorguiprt/page_files.h"
#include "platform/linux/zorguiprt/page_ids.h"
#include "platform/linux/zorguiprt/screen.h"
#include "platform/linux/zorguiprt/screen_server.h"

namespace jxplatform {

// What uiInvokeURL and uiInvokeURLAsync do. The server starts with the first page; a start that failed is tried again
// with the next page. Failures are told in a line on standard error.
class TerminalScreen {
 public:
  using Vars = std::map<std::string, std::string>;

  static TerminalScreen& instance();

  [[nodiscard]] int showSynchronous(Vars& vars, const std::string& page, zorgui::UICallback callback, void* data);
  // Throws nothing.
  void showAsynchronous(const Vars& vars, const std::string& page, zorgui::UIAsyncCallback callback, void* data);

 private:
  TerminalScreen();

  // Reads the page and carries out its instructions. Throws Failure when it cannot be read.
  void fill(PageContent& content) const;
  void complainUnread(const std::string& page, const Failure& failure) const;
  [[nodiscard]] bool putUp(const Vars& vars, const std::string& page, zorgui::UIAsyncCallback callback, void* data);
  [[nodiscard]] bool serve();
  void startServer();
  void writeUrl();
  void end();

  const std::string urlFile_;
  PageFiles files_;
  PageIds ids_;
  Screen screen_;
  std::mutex serverMutex_;
  std::unique_ptr<ScreenServer> server_;
  bool urlWritten_ = false;
};

}  // namespace jxplatform
