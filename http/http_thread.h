// The server end of one HTTP connection, on a thread of its own.
#pragma once

#include "http/http_proto.h"
#include "http/thread.h"

namespace zorhtml {

// Reads requests, hands them to the handlers by method and answers, for as long as the client keeps the connection. A
// handler reads the request's body itself; what it leaves is taken as the next request. The listener copies a prototype
// of the derived class for each connection.
class HttpThread : public HttpProto, public Thread {
 public:
  HttpThread() = default;
  // Copies the engine's part as HttpProto does, the whole buffer, and `fill`.
  HttpThread(const HttpThread&) = default;
  HttpThread& operator=(const HttpThread&) = delete;
  ~HttpThread() override;

  // The connection loop. Always returns 0. An exception ends the connection and nothing else; a handler that ends the
  // thread, by pthread_exit() or being cancelled, ends the connection with it.
  int run() override;

  // Writes a complete reply that announces keep-alive, or the end of the connection. False when it could not be
  // written.
  virtual bool sendResponse(int status, const std::string& body, const std::string& contentType,
                            const HttpHeaders& extra);
  virtual bool sendResponseClose(int status, const std::string& body, const std::string& contentType,
                                 const HttpHeaders& extra);

  // Answer a request for `path` (normalised, with its query). True lets the connection go on to the next request.
  virtual bool doGET(const std::string& path) = 0;
  virtual bool doPOST(const std::string& path) = 0;
  virtual bool doHEAD(const std::string& path);  // answers 405

 protected:
  static constexpr int kBufferSize = 4096;

  // Reads body bytes into the free end of the buffer. Returns the bytes it then holds; -1 when the read failed.
  int fillBuffer();
  // Drops `count` bytes from the front of the buffer.
  void consumeBuffer(int count);

  char buffer[kBufferSize] = {};
  int fill = 0;  // bytes at the front of the buffer that mean something

 private:
  bool serveRequest();
  bool dispatch(HttpMethod method, const std::string& path);
  bool sendWhole(int status, const std::string& body, const std::string& contentType, bool keepAlive,
                 const HttpHeaders& extra);
};

}  // namespace zorhtml
