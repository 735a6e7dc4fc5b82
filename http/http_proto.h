// One end of an HTTP/1.x connection: reading and writing of messages, as server or as client.
#pragma once

#include <zoripc.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace zorhtml {

// What a start line turned out to be.
enum class HttpMethod : int {
  Unknown = 0,
  Response = 1,
  Options = 2,
  Get = 3,
  Head = 4,
  Post = 5,
  Put = 6,
  Delete = 7,
  Trace = 8,
  Connect = 9,
  Patch = 10,
};

// Header fields. Of a message read: keys lower-cased, with the pseudo-field "http-version" beside them. Of a message to
// be written: spelled as they are to appear.
using HttpHeaders = std::map<std::string, std::string>;

// An HTTP/1.x connection over one stream, which it owns. Used by one thread at a time; every operation may block up to
// `timeout` for each read. After a failure of a body the stream is deleted and `connection` null; every later operation
// then fails. The order of the virtual operations is part of the interface, and the engine calls its own operations
// through them, so that a derived class can replace each.
class HttpProto {
 public:
  // Takes ownership of `stream`, which may be null.
  explicit HttpProto(zoripc::IPC* stream = nullptr);
  // Copies the settings, the counters and the header fields, never the stream; `proxyForm` starts at 0.
  HttpProto(const HttpProto& other);
  HttpProto& operator=(const HttpProto&) = delete;

  // Reads a start line and header block. Returns 200, or the status of a response; 400 for a malformed or broken
  // message, 408 when the peer stayed silent, 410 without a connection. For a request `path` is its normalised target,
  // for a response empty. `keepOpen` tells whether the connection can still carry a reply.
  virtual int readHeader(HttpMethod& method, std::string& path, bool& keepOpen);

  virtual ~HttpProto();

  // Reads a request's head: the status of readHeader, or 400 when a response came. Ends client mode.
  virtual int readRequest(HttpMethod& method, std::string& path);

  // Reads a response's head: its status, or 400 when a request came.
  virtual int readResponse(bool& keepOpen);

  // Splits the credentials of an "authorization" field of the scheme Basic; both empty where there are none.
  virtual void getBasicAuth(std::string& user, std::string& password);

  // Reads up to `length` bytes of the body. Returns the number read, 0 when it is finished, -1 on failure.
  virtual int readBody(void* data, int length);

  // Reads the whole body. Returns its length, or -1 on failure.
  virtual int readBody(std::string& body);
  virtual int readBody(std::vector<unsigned char>& body);

  // Writes a status line and header block. `contentLength` -1 announces a chunked body. False when a line could not be
  // written; the connection is kept.
  virtual bool writeResponseHeader(int status, int contentLength, const std::string& contentType, bool keepAlive,
                                   const HttpHeaders& extra);

  // Sets the credentials for requests to come.
  virtual void setBasicAuth(const std::string& user, const std::string& password);

  // Writes a request line and header block for `url`. `contentLength` -1 announces a chunked body. False when the
  // method is not one of a request or a line could not be written; the connection is kept.
  virtual bool writeRequestHeader(HttpMethod method, const std::string& url, int contentLength,
                                  const std::string& contentType, bool keepAlive, const HttpHeaders& extra);

  // Writes a piece of the body in the framing announced. False on failure or for more than was announced: the
  // connection is then closed.
  virtual bool writeBody(const void* data, int length);
  virtual bool writeBody(const std::string& data);
  virtual bool writeBody(const std::vector<unsigned char>& data);

  // Ends a body: pads one that is short, or writes the last chunk. False when there is no connection or the last chunk
  // could not be written.
  virtual bool finishBody();

  // A whole exchange. Returns the response's status, or 410 when the request could not be sent or the answer not read.
  virtual int request(HttpMethod method, const std::string& url, const std::string& body,
                      const std::string& contentType, std::string& responseBody, std::string& responseType,
                      bool keepAlive);

  // Sends the file `name` as a chunked reply, or a 404. The result is true when the last chunk could NOT be written.
  virtual bool sendFile(int status, const std::string& name, const std::string& contentType, bool keepAlive,
                        const HttpHeaders& extra);

  // Whether the peer has closed or the stream failed; a byte that had arrived is lost.
  virtual bool isClosed();

  // Hands over a stream (may be null), deleting one that was held.
  void setConnection(zoripc::IPC* stream);

 protected:
  enum class LineResult { Complete = 0, Closed = 1, TimedOut = 2, NoConnection = 3 };

  // Reads up to a line feed, without it and without any carriage return.
  LineResult readLine(std::string& line);

  // Deletes the stream, if there is one; every later operation fails.
  void dropConnection();

  zoripc::IPC* connection = nullptr;
  std::int32_t timeout = 30000;     // ms, for each stream read
  std::int32_t bodyRemaining = 0;   // bytes still to be read or written; -1: chunked
  std::int32_t chunkRemaining = 0;  // bytes left in the incoming chunk
  std::string basicAuth;            // Base64 of "user:password"; empty when unset
  std::int32_t flag = 1;            // kept and copied; nothing reads it
  std::int32_t clientMode = 1;      // 0 once a request has been read
  std::int32_t proxyForm = 0;       // not 0: requests carry the absolute URL
  HttpHeaders headers;              // of the last message read

 private:
  bool parseStartLine(const std::string& line, HttpMethod& method, std::string& path, bool& keepOpen, int& status);
  int readFields(int status, bool& keepOpen);
  void storeField(const std::string& line);
  void decideFraming();

  bool readBytes(void* data, int count);
  int readFixed(void* data, int length);
  int readChunked(unsigned char* data, int length);
  bool readChunk(unsigned char* data, int count);
  bool readChunkSize();
  bool readTrailer();
  template <class Body>
  int readWholeBody(Body& body);
  template <class Body>
  int readAnnounced(Body& body);

  bool send(const std::string& text);
  bool sendField(const std::string& key, const std::string& value);
  bool sendResponseFraming(int contentLength, const std::string& contentType);
  bool sendRequestFraming(int contentLength, const std::string& contentType);
  bool sendCredentials(const std::string& authorization);
  bool writePiece(const void* data, int length);
};

}  // namespace zorhtml
