// What the screen answers to which request.
#pragma once

#include <string>

#include "platform/linux/zorguiprt/answer.h"
#include "platform/linux/zorguiprt/own_names.h"
#include "platform/linux/zorguiprt/page_files.h"
#include "platform/linux/zorguiprt/request.h"
#include "platform/linux/zorguiprt/request_target.h"
#include "platform/linux/zorguiprt/screen.h"

namespace jxplatform {

// The requests that docs/screen.md lists. Any thread.
class ScreenRoutes {
 public:
  static constexpr int kLongestWaitSeconds = 30;

  // `screen` outlives this object. `title` names the document.
  ScreenRoutes(Screen& screen, PageFiles files, const std::string& title);

  // The answer to a request that came to the server of these `names`. Blocks while the request waits for a page, or the
  // program for a result. Throws std::bad_alloc.
  [[nodiscard]] Answer answer(const Request& request, const OwnNames& names);

 private:
  [[nodiscard]] Answer answerOwn(const Request& request);
  [[nodiscard]] Answer answerRead(const RequestTarget& target);
  [[nodiscard]] Answer answerScreen(const RequestTarget& target);
  [[nodiscard]] Answer answerFile(const std::string& path) const;
  [[nodiscard]] Answer takeResult(const std::string& id, const Request& request);

  Screen& screen_;
  const PageFiles files_;
  const std::string document_;
};

}  // namespace jxplatform
