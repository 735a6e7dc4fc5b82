#include "tests/unit/cloudproxy/fixture.h"

zoripc::JSObject json(const std::string& text) {
  zoripc::JSObject value;
  EXPECT_TRUE(zoripc::JSObject::parse(text, value)) << text.substr(0, 100);
  return value;
}

CloudProxyTest::CloudProxyTest() {
  gui.reset();
  ipc.onSend([this](const zoripc::JSObject& message) { return takeRequest(message); });
  wrapped::stopClock();
}

int CloudProxyTest::takeRequest(const zoripc::JSObject& message) {
  std::deque<std::string>& waiting = answers_[message["proxy"]["command"].getString()];
  if (waiting.empty()) {
    wrapped::stopClockInThePast();
    return 0;
  }
  wrapped::stopClock();
  ipc.deliver("CloudProxyConfResponse", json(waiting.front()));
  waiting.pop_front();
  return 0;
}
