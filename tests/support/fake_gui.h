// A scripted stand-in for the GUI library's page calls: records what is shown and answers as told.
#pragma once

#include <zorguiprt.h>

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

// One page that was shown, with the variables as they came in.
struct ShownPage {
  std::string page;
  std::map<std::string, std::string> vars;
  bool synchronous = false;
  bool plainNumbers = false;                   // both leading numbers were 0
  zorgui::UIAsyncCallback callback = nullptr;  // of an asynchronous page
  void* data = nullptr;
  zorgui::UICallback syncCallback = nullptr;  // of a synchronous page
};

class FakeGui {
 public:
  // What a synchronous page does: it may change the variables, and returns its result.
  using Answer = std::function<int(std::map<std::string, std::string>& vars)>;

  static FakeGui& instance();

  // Forgets everything that was shown and scripted.
  void reset();

  // Queues the next answer of the synchronous page `page`. A page without one returns -1.
  void answer(const std::string& page, Answer answer);
  void answer(const std::string& page, int result);

  // Runs when an asynchronous page has been shown, on the thread that showed it.
  void onAsync(std::function<void(const ShownPage&)> hook);

  // All pages so far, in order. Any thread.
  std::vector<ShownPage> shown() const;
  std::vector<std::string> shownNames() const;

  // Calls the callback of the newest asynchronous page as the library would.
  void report(int type, int result);

  // What the fakes of the library call.
  int showSync(const ShownPage& shown, std::map<std::string, std::string>& vars);
  void showAsync(int region, int flags, const ShownPage& shown);

 private:
  mutable std::mutex mutex_;
  std::vector<ShownPage> shown_;
  std::map<std::string, std::deque<Answer>> answers_;
  std::function<void(const ShownPage&)> hook_;
};
