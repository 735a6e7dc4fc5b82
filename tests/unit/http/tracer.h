// A server object that notes each of its virtual operations as it is called, and then does what the engine does.
#pragma once

#include <cstddef>
#include <new>
#include <string>
#include <vector>

#include "tests/unit/http/test_server.h"

using Trace = std::vector<std::string>;

class Tracer : public zorhtml::HttpThread {
 public:
  using Base = zorhtml::HttpThread;
  using Method = zorhtml::HttpMethod;
  using Headers = zorhtml::HttpHeaders;

  explicit Tracer(Trace& calls) : trace(calls) {}
  Tracer(Trace& calls, const ScriptedPeer& peer) : trace(calls) { setConnection(peer.stream()); }
  ~Tracer() override { trace.emplace_back("destructor"); }

  // Deleting goes through here, so that a test can tell it from mere destruction.
  static void* operator new(std::size_t size);
  static void* operator new(std::size_t, void* place) { return place; }
  static void operator delete(void* object);

  int readHeader(Method& method, std::string& path, bool& keepOpen) override {
    trace.emplace_back("readHeader");
    return Base::readHeader(method, path, keepOpen);
  }
  int readRequest(Method& method, std::string& path) override {
    trace.emplace_back("readRequest");
    return Base::readRequest(method, path);
  }
  int readResponse(bool& keepOpen) override {
    trace.emplace_back("readResponse");
    return Base::readResponse(keepOpen);
  }
  void getBasicAuth(std::string& user, std::string& password) override {
    trace.emplace_back("getBasicAuth");
    Base::getBasicAuth(user, password);
  }
  int readBody(void* data, int length) override {
    trace.emplace_back("readBody buffer");
    return Base::readBody(data, length);
  }
  int readBody(std::string& body) override {
    trace.emplace_back("readBody string");
    return Base::readBody(body);
  }
  int readBody(std::vector<unsigned char>& body) override {
    trace.emplace_back("readBody vector");
    return Base::readBody(body);
  }
  bool writeResponseHeader(int status, int length, const std::string& type, bool keepAlive,
                           const Headers& extra) override {
    trace.emplace_back("writeResponseHeader");
    return Base::writeResponseHeader(status, length, type, keepAlive, extra);
  }
  void setBasicAuth(const std::string& user, const std::string& password) override {
    trace.emplace_back("setBasicAuth");
    Base::setBasicAuth(user, password);
  }
  bool writeRequestHeader(Method method, const std::string& url, int length, const std::string& type, bool keepAlive,
                          const Headers& extra) override {
    trace.emplace_back("writeRequestHeader");
    return Base::writeRequestHeader(method, url, length, type, keepAlive, extra);
  }
  bool writeBody(const void* data, int length) override {
    trace.emplace_back("writeBody buffer");
    return Base::writeBody(data, length);
  }
  bool writeBody(const std::string& data) override {
    trace.emplace_back("writeBody string");
    return Base::writeBody(data);
  }
  bool writeBody(const std::vector<unsigned char>& data) override {
    trace.emplace_back("writeBody vector");
    return Base::writeBody(data);
  }
  bool finishBody() override {
    trace.emplace_back("finishBody");
    return Base::finishBody();
  }
  int request(Method method, const std::string& url, const std::string& body, const std::string& type,
              std::string& responseBody, std::string& responseType, bool keepAlive) override {
    trace.emplace_back("request");
    return Base::request(method, url, body, type, responseBody, responseType, keepAlive);
  }
  bool sendFile(int status, const std::string& name, const std::string& type, bool keepAlive,
                const Headers& extra) override {
    trace.emplace_back("sendFile");
    return Base::sendFile(status, name, type, keepAlive, extra);
  }
  bool isClosed() override {
    trace.emplace_back("isClosed");
    return Base::isClosed();
  }
  int run() override {
    trace.emplace_back("run");
    return Base::run();
  }
  void onStart(void* argument) override {
    trace.emplace_back("onStart");
    started = argument;
  }
  bool sendResponse(int status, const std::string& body, const std::string& type, const Headers& extra) override {
    trace.emplace_back("sendResponse");
    return Base::sendResponse(status, body, type, extra);
  }
  bool sendResponseClose(int status, const std::string& body, const std::string& type, const Headers& extra) override {
    trace.emplace_back("sendResponseClose");
    return Base::sendResponseClose(status, body, type, extra);
  }
  bool doGET(const std::string& path) override {
    trace.emplace_back("doGET " + path);
    return true;
  }
  bool doPOST(const std::string& path) override {
    trace.emplace_back("doPOST " + path);
    return true;
  }
  bool doHEAD(const std::string& path) override {
    trace.emplace_back("doHEAD " + path);
    return Base::doHEAD(path);
  }

  using HttpProto::bodyRemaining;

  static inline int deletions = 0;
  Trace& trace;
  void* started = nullptr;
};
