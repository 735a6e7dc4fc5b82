// What is on the terminal's screen: the page of the moment, who waits for it and who waits for its result.
#pragma once

#include <zorguiprt.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>

#include "platform/linux/zorguiprt/page.h"

namespace jxplatform {

// Ends what `callback` (may be null) waits for, on the calling thread, where the page that would end it is not there:
// tells it 1, by which a page aborts what goes on behind it, and then -1, by which it is left.
void reportGivenUp(zorgui::UIAsyncCallback callback, void* data);

// The state behind the screen's requests. Any thread may call anything; nothing here throws but for want of memory or,
// where it is said, of a thread.
class Screen {
 public:
  struct Page;
  using PagePointer = std::shared_ptr<Page>;
  using Text = std::shared_ptr<const std::string>;

  // Gives a page its id, above every earlier one.
  using NextId = std::function<std::uint64_t()>;

  // Requests that wait for a page at the same time; one more releases the oldest, so that the server's connections
  // cannot all be waiting ones.
  static constexpr std::size_t kMostWaiting = 48;

  // So long a page that returns by itself is left for a browser to show: longer than one needs for it, be it that the
  // connection has to be made again, and short for whoever waits without one.
  static constexpr std::chrono::milliseconds kAutoResultWait{3000};

  explicit Screen(NextId nextId, std::chrono::milliseconds autoResultWait = kAutoResultWait);
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  // A later page has been requested: the one on screen takes no more results, the call that waits for its result
  // returns -1, and after this function's return its callback neither runs nor is called again. Waits for a callback
  // that is running, unless it is called by that callback.
  void endPage();

  // Puts a page on the screen in place of the one before, as endPage does. While another thread is in endPage, a page
  // that a callback shows is ended at once. An asynchronous page with a callback needs the library's thread, and is not
  // shown when the system gives none. The -1 of one that stands in is reported as reportGivenUp does.
  [[nodiscard]] PagePointer showSynchronous(const PageContent& content);
  void showAsynchronous(const PageContent& content, zorgui::UIAsyncCallback callback, void* data);

  // Calls an asynchronous page's callback (may be null) as reportGivenUp does on the library's thread, for a page that
  // cannot be shown; endPage ends that too. Without the memory or the thread for it, calls it before it returns. Throws
  // nothing.
  void reportUnshown(zorgui::UIAsyncCallback callback, void* data);

  // Blocks until `page` has its result, which one that returns by itself has at the latest when it has been up for the
  // wait given above. Without one it was replaced, `callback` (may be null; asked every tenth of a second, on this
  // thread) returned false, or the program ends. The page stays on screen but takes no result any more.
  [[nodiscard]] std::optional<PageResult> waitForResult(const PagePointer& page, zorgui::UICallback callback,
                                                        void* data);

  // The JSON text of the page on screen when its id is above `after`; waits for one for at most `wait`. Null when none
  // came, the program ends, or too many wait.
  [[nodiscard]] Text newest(std::uint64_t after, std::chrono::milliseconds wait);

  // A result for the page `id`. True when it was given to the program: to the waiting call, or to the callback, which
  // has then begun. False when that page is not on screen, was left (-1) before, or the callback before has kept the
  // library's thread busy for ten seconds. After what it throws the page takes results still.
  [[nodiscard]] bool post(std::uint64_t id, PageResult result);

  // Releases everybody who waits; the screen is of no use any more. Waits for a callback that is running.
  void close();

 private:
  struct Report;
  using Lock = std::unique_lock<std::mutex>;

  [[nodiscard]] static bool isDueByItself(const Page& page);
  void waitForChange(Lock& lock, const Page& page, bool hasCallback);
  void endPageLocked(Lock& lock);
  void put(Lock& lock, const PagePointer& page, const PageContent& content);
  void startDispatcher();
  [[nodiscard]] bool report(Lock& lock, const PagePointer& page, int result);
  static void perform(const Report& report);
  void queueUnshown(zorgui::UIAsyncCallback callback, void* data);
  void dispatch();
  [[nodiscard]] bool onDispatcher() const;

  const NextId nextId_;
  const std::chrono::milliseconds autoResultWait_;
  std::mutex mutex_;
  std::condition_variable changed_;
  PagePointer page_;
  std::set<std::uint64_t> waiting_;  // tickets of newest(), oldest first
  std::uint64_t nextTicket_ = 0;
  std::deque<std::shared_ptr<Report>> reports_;
  bool callbackRuns_ = false;
  unsigned endsWaiting_ = 0;  // threads in endPage that wait for the callback
  bool closed_ = false;
  std::thread dispatcher_;
};

}  // namespace jxplatform
