// The cloud proxy exchange as a process of its own, for the system tests: does what its standard input says, a command
// a line, and prints a line for each.
//   request SECONDS JSON · "RESULT JSON"
//   probe                · the entry of the menu: "none", "log level" or "cloud proxy"
//   settings             · "RESULT cloud_env auth_ex_support cert cloud_hostname bytes-of-cloud_env_list"
//   level                · "LEVEL"
//   listen NAME          · "listening", and later NAME for each such notification: all before it have been delivered
// Big results are cut.
#include <zoripc.h>

#include <iostream>
#include <sstream>
#include <string>

#include "cloudproxy/exchange.h"
#include "cloudproxy/log_level.h"
#include "cloudproxy/probe.h"
#include "cloudproxy/proxy_settings.h"

namespace {

constexpr std::size_t kMaxBytes = 200;

std::string request(std::istringstream& words) {
  int seconds = 0;
  std::string text;
  words >> seconds >> text;
  zoripc::JSObject message;
  if (!zoripc::JSObject::parse(text, message)) return "not JSON";
  const int result = cloudProxyRequest(message, seconds);
  return std::to_string(result) + " " + message.dump().substr(0, kMaxBytes);
}

std::string settings() {
  ProxySettings read;
  if (const int result = readProxySettings(read); result != 0) return std::to_string(result);
  return "0 " + read.cloud_env + " " + read.auth_ex_support + " " + read.cert + " " + read.cloud_hostname + " " +
         std::to_string(read.cloud_env_list.size());
}

std::string probe() {
  switch (proxyProbe()) {
    case ProxyEntry::kCloudProxy:
      return "cloud proxy";
    case ProxyEntry::kLogLevel:
      return "log level";
    case ProxyEntry::kNone:
      break;
  }
  return "none";
}

// On the library's thread. The main one is not printing: it waits for its next command.
void sayName(void* /*data*/, const std::string& /*sender*/, const std::string& /*receiver*/, const std::string& name,
             const zoripc::JSObject& /*message*/, unsigned /*flags*/) {
  std::cout << name << std::endl;
}

std::string listen(std::istringstream& words) {
  std::string name;
  words >> name;
  return zoripc::ipcRegisterNotificationCB(name.c_str(), sayName, nullptr, 0, "") == 0 ? "listening" : "deaf";
}

std::string perform(const std::string& line) {
  std::istringstream words(line);
  std::string command;
  words >> command;
  if (command == "request") return request(words);
  if (command == "settings") return settings();
  if (command == "listen") return listen(words);
  if (command == "level") return std::to_string(readLogLevel());
  return command == "probe" ? probe() : "unknown command";
}

}  // namespace

int main() {
  for (std::string line; std::getline(std::cin, line);) std::cout << perform(line) << std::endl;
}
