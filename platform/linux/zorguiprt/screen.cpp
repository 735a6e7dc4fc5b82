#include "platform/linux/zorguiprt/screen.h"

#include <utility>

#include "platform/linux/zorguiprt/screen_json.h"

namespace jxplatform {
namespace {

constexpr std::chrono::milliseconds kCallbackInterval{100};
constexpr std::chrono::seconds kReportTimeout{10};

}  // namespace

struct Screen::Page {
  std::uint64_t id = 0;
  Text json;
  bool synchronous = false;
  bool open = true;  // takes results
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

Screen::Screen(NextId nextId) : nextId_(std::move(nextId)) {}

Screen::~Screen() { close(); }

bool Screen::onDispatcher() const { return dispatcher_.get_id() == std::this_thread::get_id(); }

void Screen::endPage() {
  Lock lock(mutex_);
  endPageLocked(lock);
}

// Again after a wait: another thread may have put a page meanwhile.
void Screen::endPageLocked(Lock& lock) {
  do {
    if (page_) page_->open = false;
    for (const auto& report : reports_) report->dropped = true;
    reports_.clear();
    changed_.notify_all();
    if (onDispatcher()) return;
    ++endsWaiting_;
    changed_.wait(lock, [this] { return !callbackRuns_; });
    --endsWaiting_;
  } while ((page_ && page_->open) || !reports_.empty());
}

void Screen::put(Lock& lock, const PagePointer& page, const PageContent& content) {
  endPageLocked(lock);
  page->id = nextId_();
  page->json = std::make_shared<const std::string>(screenJson(page->id, page->synchronous, content));
  page->open = !closed_ && !(onDispatcher() && endsWaiting_ > 0);
  page_ = page;
  changed_.notify_all();
}

Screen::PagePointer Screen::showSynchronous(const PageContent& content) {
  auto page = std::make_shared<Page>();
  page->synchronous = true;
  Lock lock(mutex_);
  put(lock, page, content);
  return page;
}

void Screen::showAsynchronous(const PageContent& content, zorgui::UIAsyncCallback callback, void* data) {
  auto page = std::make_shared<Page>();
  page->callback = callback;
  page->data = data;
  Lock lock(mutex_);
  put(lock, page, content);
}

std::optional<PageResult> Screen::waitForResult(const PagePointer& page, zorgui::UICallback callback, void* data) {
  Lock lock(mutex_);
  while (page->open && !closed_) {
    if (callback == nullptr) {
      changed_.wait(lock);
      continue;
    }
    changed_.wait_for(lock, kCallbackInterval);
    lock.unlock();
    const bool goesOn = callback(data);
    lock.lock();
    if (!goesOn) break;
  }
  page->open = false;
  return std::move(page->result);
}

Screen::Text Screen::newest(std::uint64_t after, std::chrono::milliseconds wait) {
  const auto deadline = std::chrono::steady_clock::now() + wait;
  Lock lock(mutex_);
  const auto isThere = [&] { return page_ && page_->id > after; };
  if (isThere()) return page_->json;

  const std::uint64_t ticket = nextTicket_++;
  waiting_.insert(ticket);
  if (waiting_.size() > kMostWaiting) {
    waiting_.erase(waiting_.begin());
    changed_.notify_all();
  }
  changed_.wait_until(lock, deadline, [&] { return isThere() || closed_ || waiting_.count(ticket) == 0; });
  waiting_.erase(ticket);
  return isThere() ? page_->json : nullptr;
}

bool Screen::post(std::uint64_t id, PageResult result) {
  Lock lock(mutex_);
  const PagePointer page = page_;
  if (!page || page->id != id || !page->open || closed_) return false;
  if (!page->synchronous) return report(lock, page, result.result);
  page->result = std::move(result);
  page->open = false;
  changed_.notify_all();
  return true;
}

// An asynchronous page may return results again and again until the operator leaves it: the program may end what the
// callback works on after that, long before it shows the next page.
bool Screen::report(Lock& lock, const PagePointer& page, int result) {
  const bool left = result == -1;
  page->open = !left;
  if (page->callback == nullptr) return true;
  const auto entry = std::make_shared<Report>();
  entry->page = page;
  entry->result = result;
  reports_.push_back(entry);
  if (!dispatcher_.joinable()) dispatcher_ = std::thread(&Screen::dispatch, this);
  changed_.notify_all();
  if (changed_.wait_for(lock, kReportTimeout, [&] { return entry->begun || entry->dropped; })) return entry->begun;
  entry->dropped = true;
  page->open = page == page_;
  return false;
}

void Screen::reportUnshown(zorgui::UIAsyncCallback callback, void* data) {
  if (callback == nullptr) return;
  const auto entry = std::make_shared<Report>();
  entry->page = std::make_shared<Page>();
  entry->page->callback = callback;
  entry->page->data = data;
  entry->result = -1;
  const Lock lock(mutex_);
  if (closed_) return;
  reports_.push_back(entry);
  if (!dispatcher_.joinable()) dispatcher_ = std::thread(&Screen::dispatch, this);
  changed_.notify_all();
}

// The library's thread.
void Screen::dispatch() {
  Lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return closed_ || !reports_.empty(); });
    if (closed_) return;
    const std::shared_ptr<Report> entry = reports_.front();
    reports_.pop_front();
    if (entry->dropped) continue;
    entry->begun = true;
    callbackRuns_ = true;
    changed_.notify_all();
    lock.unlock();
    const zorgui::UICallbackData info{entry->result};
    entry->page->callback(entry->page->data, zorgui::kUICallbackResult, &info);
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
