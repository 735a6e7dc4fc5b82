// Shows pages through the GUI library as it is told on standard input, and tells on standard output what comes of it:
// JSON, a line each.
//
//   {"sync":PAGE,"vars":{…}}            shows the page and waits: {"returned":PAGE,"result":N,"vars":{…}}
//   {"sync":PAGE,"vars":{…},"polls":N}  the same with a callback that ends the page when it is asked the Nth time
//   {"async":PAGE,"vars":{…}}           shows the page: {"shown":PAGE}; later {"reported":PAGE,"type":T,"result":N}
//   {"async":PAGE,…,"then":PAGE2}       the callback itself shows PAGE2 synchronously before it reports
//   {"async":PAGE,…,"hold":true}        the callback waits for {"release":true} before it reports
//   "thread":true                       runs the command on a thread of its own, beside the next ones
//   {"version":true}                    {"version":TEXT or null}
//
// The end of input ends the program in the usual way.
#include <jsproc.h>
#include <zorguiprt.h>
#include <zorhtml.h>

#include <condition_variable>
#include <deque>
#include <exception>
#include <iostream>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <utility>

namespace {

using Json = nlohmann::json;
using Vars = std::map<std::string, std::string>;

void tell(const Json& line) {
  static std::mutex mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  std::cout << line.dump() << std::endl;
}

// A gate that stays open once it was opened.
class Gate {
 public:
  void open() {
    const std::lock_guard<std::mutex> lock(mutex_);
    open_ = true;
    opened_.notify_all();
  }
  void pass() {
    std::unique_lock<std::mutex> lock(mutex_);
    opened_.wait(lock, [this] { return open_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable opened_;
  bool open_ = false;
};

Gate& releaseGate() {
  static Gate gate;
  return gate;
}

void showSync(const Json& command) {
  const std::string page = command["sync"];
  Vars vars = command.value("vars", Vars());
  int polls = command.value("polls", 0);
  const zorgui::UICallback countDown = [](void* left) { return --*static_cast<int*>(left) > 0; };
  const int result = zorgui::uiInvokeURL(0, 0, vars, page, polls > 0 ? countDown : nullptr, &polls);
  tell({{"returned", page}, {"result", result}, {"vars", vars}});
}

void onReport(void* data, int type, const zorgui::UICallbackData* info) {
  const Json& command = *static_cast<Json*>(data);
  tell({{"began", command["async"]}});
  if (command.value("hold", false)) releaseGate().pass();
  if (command.contains("then")) showSync({{"sync", command["then"]}});
  tell({{"reported", command["async"]}, {"type", type}, {"result", info->result}});
}

void showAsync(const Json& command) {
  static std::mutex mutex;
  static std::deque<Json> commands;  // the callbacks' data, kept to the end
  Json* kept = nullptr;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    commands.push_back(command);
    kept = &commands.back();
  }
  zorgui::uiInvokeURLAsync(0, 0, command.value("vars", Vars()), command["async"], onReport, kept);
  tell({{"shown", command["async"]}});
}

void carryOut(const Json& command) {
  if (command.contains("sync")) showSync(command);
  if (command.contains("async")) showAsync(command);
  if (command.contains("release")) releaseGate().open();
  if (command.contains("version")) {
    const char* const version = zorgui::gui_GetSvcVersion();
    tell({{"version", version == nullptr ? Json() : Json(version)}});
  }
}

void carryOutAll() {
  std::deque<std::thread> threads;
  std::string line;
  while (std::getline(std::cin, line)) {
    Json command = Json::parse(line);
    if (command.value("thread", false)) {
      threads.emplace_back(carryOut, std::move(command));
    } else {
      carryOut(command);
    }
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace

int main() {
  try {
    zorhtml::htmlSetScriptProcessor("js", js::jsProcessorExt, nullptr);
    carryOutAll();
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "jxscreen_driver: " << error.what() << "\n";
    return 2;
  }
}
