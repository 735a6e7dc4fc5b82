#include "tests/support/fake_gui.h"

#include <utility>

FakeGui& FakeGui::instance() {
  static FakeGui gui;
  return gui;
}

void FakeGui::reset() {
  std::lock_guard<std::mutex> lock(mutex_);
  shown_.clear();
  answers_.clear();
  hook_ = nullptr;
}

void FakeGui::answer(const std::string& page, Answer answer) {
  std::lock_guard<std::mutex> lock(mutex_);
  answers_[page].push_back(std::move(answer));
}

void FakeGui::answer(const std::string& page, int result) {
  answer(page, [result](std::map<std::string, std::string>&) { return result; });
}

void FakeGui::onAsync(std::function<void(const ShownPage&)> hook) {
  std::lock_guard<std::mutex> lock(mutex_);
  hook_ = std::move(hook);
}

std::vector<ShownPage> FakeGui::shown() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return shown_;
}

std::vector<std::string> FakeGui::shownNames() const {
  std::vector<std::string> names;
  for (const ShownPage& page : shown()) names.push_back(page.page);
  return names;
}

void FakeGui::report(int type, int result) {
  ShownPage newest;
  for (const ShownPage& page : shown()) {
    if (!page.synchronous) newest = page;
  }
  const zorgui::UICallbackData info{result};
  if (newest.callback != nullptr) newest.callback(newest.data, type, &info);
}

int FakeGui::showSync(const ShownPage& shown, std::map<std::string, std::string>& vars) {
  Answer next;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    shown_.push_back(shown);
    std::deque<Answer>& queue = answers_[shown.page];
    if (queue.empty()) return -1;
    next = std::move(queue.front());
    queue.pop_front();
  }
  return next(vars);
}

void FakeGui::showAsync(int region, int flags, const ShownPage& shown) {
  std::function<void(const ShownPage&)> hook;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    shown_.push_back(shown);
    shown_.back().plainNumbers = region == 0 && flags == 0;
    hook = hook_;
  }
  if (hook) hook(shown);
}

namespace zorgui {

int uiInvokeURL(int region, int flags, std::map<std::string, std::string>& vars, const std::string& page,
                UICallback callback, void* data) {
  return FakeGui::instance().showSync({page, vars, true, region == 0 && flags == 0, nullptr, data, callback}, vars);
}

void uiInvokeURLAsync(int region, int flags, const std::map<std::string, std::string>& vars, const std::string& page,
                      UIAsyncCallback callback, void* data) {
  FakeGui::instance().showAsync(region, flags, {page, vars, false, false, callback, data, nullptr});
}

}  // namespace zorgui
