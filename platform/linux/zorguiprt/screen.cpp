#include "platform/linux/zorguiprt/screen.h"

#include <exception>
#include <utility>

#include "base/deadline.h"
#include "platform/linux/zorguiprt/screen_json.h"

namespace jxplatform {
namespace {

constexpr std::chrono::milliseconds kCallbackInterval{100};
constexpr std::chrono::seconds kReportTimeout{10};
constexpr int kAborts = 1;  // the result of a page that aborts what goes on behind it
constexpr int kLeft = -1;   // the result of a page that the operator leaves

void tell(zorgui::UIAsyncCallback callback, void* data, int result) {
  const zorgui::UICallbackData info{result};
  callback(data, zorgui::kUICallbackResult, &info);
}

}  // namespace

struct Screen::Page {
  enum class State {
    kOpen,      // takes results
    kDone,      // synchronous: it has its result, or its caller waits no more
    kLeft,      // asynchronous: the operator has left it
    kReplaced,  // a later page has been requested, or the screen was closed before it was up
  };

  std::uint64_t id = 0;
  Text json;
  bool synchronous = false;
  bool standsIn = false;
  std::optional<int> autoResult;
  base::Deadline autoResultEnd{-1};
  State state = State::kOpen;
  std::optional<PageResult> result;
  zorgui::UIAsyncCallback callback = nullptr;
  void* data = nullptr;
};

// A result on its way to an asynchronous page's callback.
struct Screen::Report {
  PagePointer page;
  int result = 0;
  bool begun = false;
  bool dropped = false;
};

Screen::Screen(NextId nextId, std::chrono::milliseconds autoResultWait)
    : nextId_(std::move(nextId)), autoResultWait_(autoResultWait) {}

Screen::~Screen() { close(); }

bool Screen::onDispatcher() const { return dispatcher_.get_id() == std::this_thread::get_id(); }

void Screen::endPage() {
  Lock lock(mutex_);
  endPageLocked(lock);
}

// Again after a wait: another thread may have put a page meanwhile.
void Screen::endPageLocked(Lock& lock) {
  do {
    if (page_) page_->state = Page::State::kReplaced;
    for (const auto& report : reports_) report->dropped = true;
    reports_.clear();
    changed_.notify_all();
    if (onDispatcher()) return;
    ++endsWaiting_;
    changed_.wait(lock, [this] { return !callbackRuns_; });
    --endsWaiting_;
  } while ((page_ && page_->state == Page::State::kOpen) || !reports_.empty());
}

void Screen::put(Lock& lock, const PagePointer& page, const PageContent& content) {
  endPageLocked(lock);
  page->id = nextId_();
  page->json = std::make_shared<const std::string>(screenJson(page->id, page->synchronous, content));
  if (closed_ || (onDispatcher() && endsWaiting_ > 0)) page->state = Page::State::kReplaced;
  page_ = page;
  changed_.notify_all();
}

Screen::PagePointer Screen::showSynchronous(const PageContent& content) {
  auto page = std::make_shared<Page>();
  page->synchronous = true;
  page->autoResult = content.autoResult;
  Lock lock(mutex_);
  put(lock, page, content);
  page->autoResultEnd = base::Deadline(static_cast<int>(autoResultWait_.count()));
  return page;
}

void Screen::showAsynchronous(const PageContent& content, zorgui::UIAsyncCallback callback, void* data) {
  auto page = std::make_shared<Page>();
  page->callback = callback;
  page->data = data;
  page->standsIn = content.standsIn;
  Lock lock(mutex_);
  if (callback != nullptr) startDispatcher();
  put(lock, page, content);
}

bool Screen::isDueByItself(const Page& page) { return page.autoResult && page.autoResultEnd.passed(); }

void Screen::waitForChange(Lock& lock, const Page& page, bool hasCallback) {
  if (hasCallback) {
    changed_.wait_for(lock, kCallbackInterval);
  } else if (page.autoResult) {
    changed_.wait_for(lock, std::chrono::milliseconds(page.autoResultEnd.remainingMs()));
  } else {
    changed_.wait(lock);
  }
}

std::optional<PageResult> Screen::waitForResult(const PagePointer& page, zorgui::UICallback callback, void* data) {
  Lock lock(mutex_);
  while (page->state == Page::State::kOpen && !closed_) {
    if (isDueByItself(*page)) {
      page->result = PageResult{*page->autoResult, {}};
      break;
    }
    waitForChange(lock, *page, callback != nullptr);
    if (callback == nullptr) continue;
    lock.unlock();
    const bool goesOn = callback(data);
    lock.lock();
    if (!goesOn) break;
  }
  if (page->state == Page::State::kOpen) page->state = Page::State::kDone;
  return std::move(page->result);
}

Screen::Text Screen::newest(std::uint64_t after, std::chrono::milliseconds wait) {
  Lock lock(mutex_);
  const auto isThere = [&] { return page_ && page_->id > after; };
  if (isThere()) return page_->json;

  const std::uint64_t ticket = nextTicket_++;
  waiting_.insert(ticket);
  if (waiting_.size() > kMostWaiting) {
    waiting_.erase(waiting_.begin());
    changed_.notify_all();
  }
  changed_.wait_for(lock, wait, [&] { return isThere() || closed_ || waiting_.count(ticket) == 0; });
  waiting_.erase(ticket);
  return isThere() ? page_->json : nullptr;
}

bool Screen::post(std::uint64_t id, PageResult result) {
  Lock lock(mutex_);
  const PagePointer page = page_;
  if (!page || page->id != id || page->state != Page::State::kOpen || closed_) return false;
  if (!page->synchronous) return report(lock, page, result.result);
  page->result = std::move(result);
  page->state = Page::State::kDone;
  changed_.notify_all();
  return true;
}

// Before anything waits for it: without it a result could be neither reported nor taken back.
void Screen::startDispatcher() {
  if (!closed_ && !dispatcher_.joinable()) dispatcher_ = std::thread(&Screen::dispatch, this);
}

// An asynchronous page may return results again and again until the operator leaves it: the program may end what the
// callback works on after that, long before it shows the next page.
bool Screen::report(Lock& lock, const PagePointer& page, int result) {
  std::shared_ptr<Report> entry;
  if (page->callback != nullptr) {
    entry = std::make_shared<Report>(Report{page, result});
    reports_.push_back(entry);
  }
  if (result == kLeft) page->state = Page::State::kLeft;
  if (entry == nullptr) return true;
  changed_.notify_all();
  changed_.wait_for(lock, kReportTimeout, [&] { return entry->begun || entry->dropped || closed_; });
  if (entry->begun) return true;
  entry->dropped = true;
  // Nobody was told: the operator may leave it again.
  if (result == kLeft && page->state == Page::State::kLeft) page->state = Page::State::kOpen;
  return false;
}

void reportGivenUp(zorgui::UIAsyncCallback callback, void* data) {
  if (callback == nullptr) return;
  tell(callback, data, kAborts);
  tell(callback, data, kLeft);
}

// The caller may wait for nothing but this call.
void Screen::reportUnshown(zorgui::UIAsyncCallback callback, void* data) {
  try {
    if (callback != nullptr) queueUnshown(callback, data);
  } catch (const std::exception&) {
    reportGivenUp(callback, data);
  }
}

void Screen::queueUnshown(zorgui::UIAsyncCallback callback, void* data) {
  const auto page = std::make_shared<Page>();
  page->callback = callback;
  page->data = data;
  page->standsIn = true;
  const auto entry = std::make_shared<Report>(Report{page, kLeft});
  const Lock lock(mutex_);
  if (closed_) return;
  startDispatcher();
  reports_.push_back(entry);
  changed_.notify_all();
}

void Screen::perform(const Report& report) {
  const Page& page = *report.page;
  if (page.standsIn && report.result == kLeft) return reportGivenUp(page.callback, page.data);
  tell(page.callback, page.data, report.result);
}

// The library's thread.
void Screen::dispatch() {
  Lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return closed_ || !reports_.empty(); });
    if (closed_) return;
    const std::shared_ptr<Report> entry = reports_.front();
    reports_.pop_front();
    if (entry->dropped) continue;
    entry->begun = true;
    callbackRuns_ = true;
    changed_.notify_all();
    lock.unlock();
    perform(*entry);
    lock.lock();
    callbackRuns_ = false;
    changed_.notify_all();
  }
}

void Screen::close() {
  {
    const Lock lock(mutex_);
    closed_ = true;
    changed_.notify_all();
  }
  if (!dispatcher_.joinable()) return;
  if (onDispatcher()) {
    dispatcher_.detach();  // the program ends from within a callback
  } else {
    dispatcher_.join();
  }
}

}  // namespace jxplatform
