// An application for the system tests: does what its standard input says, a command a line, and prints what comes.
//   id ID · want NAME [SENDER] · failures · nofailures · send RECEIVER NAME JSON [SENDER] · exit
// Each command is answered with "= RESULT"; a notification with "notified SENDER RECEIVER NAME JSON FLAGS", a failed
// delivery with "failed" and the same.
#include <zoripc.h>

#include <cstdlib>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>

namespace {

constexpr unsigned kFlags = 9;

std::mutex outputLock;

void print(const std::string& line) {
  const std::lock_guard<std::mutex> hold(outputLock);
  std::cout << line << std::endl;
}

void onEvent(void* data, const std::string& sender, const std::string& receiver, const std::string& name,
             const zoripc::JSObject& message, unsigned flags) {
  print(std::string(static_cast<const char*>(data)) + " " + sender + " " + receiver + " " + name + " " +
        message.dump() + " " + std::to_string(flags));
}

char notified[] = "notified";
char failed[] = "failed";

int send(std::istringstream& words) {
  std::string receiver;
  std::string name;
  std::string json;
  std::string sender;
  words >> receiver >> name >> json >> sender;
  zoripc::JSObject message;
  if (!zoripc::JSObject::parse(json, message)) return -1;
  return zoripc::ipcNotify(receiver.c_str(), name.c_str(), message, kFlags, sender.c_str());
}

int perform(const std::string& command, std::istringstream& words) {
  std::string name;
  std::string sender;
  if (command == "send") return send(words);
  if (command == "failures") return zoripc::ipcRegisterUnicastError(onEvent, failed);
  if (command == "nofailures") return zoripc::ipcUnregisterUnicastError(onEvent, failed);
  words >> name >> sender;
  if (command == "want") return zoripc::ipcRegisterNotificationCB(name.c_str(), onEvent, notified, 0, sender.c_str());
  if (command != "id") return -1;
  zoripc::ipcSetAppID(name.c_str());
  return 0;
}

}  // namespace

int main() {
  for (std::string line; std::getline(std::cin, line);) {
    std::istringstream words(line);
    std::string command;
    words >> command;
    if (command == "exit") std::exit(0);
    print(perform(command, words) == 0 ? "= done" : "= refused");
  }
}
