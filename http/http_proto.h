// One end of an HTTP/1.x connection: reading and writing of messages, as server or as client.
#pragma once

#include <zoripc.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
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
// `timeout` for each read, and for as long as the stream's writes do. When reading or writing a body fails, the stream
// is deleted and `connection` null, as with one that was never there: reading a head is 410 then, reading a body 0,
// writing false. No operation throws; one that has no memory fails as stated. The order of the virtual operations is
// part of the interface, and the engine calls its own operations through them, so that a derived class can replace
// each.
class HttpProto {
 public:
  // Takes ownership of `stream`, which may be null.
  explicit HttpProto(zoripc::IPC* stream = nullptr);
  // Copies the settings, the counters and the header fields, never the stream; `proxyForm` starts at 0.
  HttpProto(const HttpProto& other);
  HttpProto& operator=(const HttpProto&) = delete;

  // Reads a start line and header block. Returns 200, or the status of a response; 400 for a malformed message, one
  // that the end of the stream cut or that there is no memory for (the stream is then deleted); 408 when the peer
  // stayed silent or the stream failed, 410 without a connection. For a request `path` is its normalised target, for a
  // response empty. `keepOpen` tells whether the connection can still carry a reply.
  virtual int readHeader(HttpMethod& method, std::string& path, bool& keepOpen);

  virtual ~HttpProto();

  // Reads a request's head: the status of readHeader, or 400 when a response came. Ends client mode, but for that.
  virtual int readRequest(HttpMethod& method, std::string& path);

  // Reads a response's head. Returns the status of readHeader; 400 when no status line was read, whether a request
  // came, something else, or nothing.
  virtual int readResponse(bool& keepOpen);

  // Splits the credentials of the "authorization" field of the message read, if its scheme is Basic; both are empty
  // where there are none.
  virtual void getBasicAuth(std::string& user, std::string& password);

  // Reads the next `length` bytes of the body, or what is left of it. Returns their number; 0 when it is finished or
  // there is no connection; -1 on failure, and bytes read by then are lost.
  virtual int readBody(void* data, int length);

  // Reads the whole body, whose memory is needed once when its length was announced. Returns the length; 0 when there
  // is no body or no connection, also after a failure; -1 on failure, and `body` is then empty.
  virtual int readBody(std::string& body);
  virtual int readBody(std::vector<unsigned char>& body);

  // Writes a status line and header block. A negative `contentLength` announces a chunked body. False when a line could
  // not be written; the connection is kept.
  virtual bool writeResponseHeader(int status, int contentLength, const std::string& contentType, bool keepAlive,
                                   const HttpHeaders& extra);

  // Sets the credentials for requests to come; without memory there are none.
  virtual void setBasicAuth(const std::string& user, const std::string& password);

  // Writes a request line and header block for `url`. A negative `contentLength` announces a chunked body. False when
  // the method is not one of a request or a line could not be written; the connection is kept.
  virtual bool writeRequestHeader(HttpMethod method, const std::string& url, int contentLength,
                                  const std::string& contentType, bool keepAlive, const HttpHeaders& extra);

  // Writes a piece of the body in the framing announced. False on failure or for more than was announced: the
  // stream is then deleted. Nothing written is true; of the buffer form only with a connection.
  virtual bool writeBody(const void* data, int length);
  virtual bool writeBody(const std::string& data);
  virtual bool writeBody(const std::vector<unsigned char>& data);

  // Ends a body. A chunked one gets its last chunk, and the stream is deleted when the request that is answered asks
  // for that by "close" in its "connection" field. Of one with a length, half of what is missing is padded with blanks,
  // and when an odd number is missing the stream is deleted. False when there is no connection, or the last chunk could
  // not be written: the stream is then deleted.
  virtual bool finishBody();

  // A whole exchange. Returns the response's status. 410 when the request could not be sent, when the body of a
  // response 200 could not be read (another status stands although its body is missing), or without memory. 400 when
  // the response's head is malformed, cut by the end of the stream or finds no memory itself, or no response came; 408
  // when the peer fell silent behind its first line. The strings are empty unless the body was read.
  virtual int request(HttpMethod method, const std::string& url, const std::string& body,
                      const std::string& contentType, std::string& responseBody, std::string& responseType,
                      bool keepAlive);

  // Sends the file `name` as a chunked reply; the result is true when the last chunk could NOT be written, false when
  // it was or the head could not be written. A file that cannot be opened is answered with a 404 without a body; the
  // result is then true when that was written. A file that cannot be read to its end is sent as far as it can.
  virtual bool sendFile(int status, const std::string& name, const std::string& contentType, bool keepAlive,
                        const HttpHeaders& extra);

  // Whether the peer has closed or the stream failed; a byte that had arrived is lost. False without a connection. Does
  // not block.
  virtual bool isClosed();

  // Hands over a stream (may be null), deleting one that was held.
  void setConnection(zoripc::IPC* stream);

 protected:
  enum class LineResult { kComplete = 0, kClosed = 1, kTimedOut = 2, kNoConnection = 3 };

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
  int readHead(HttpMethod& method, std::string& path, bool& keepOpen);
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

  bool send(std::string_view text);
  bool sendField(std::string_view key, std::string_view value);
  bool sendResponseHead(int status, const std::string& contentType, bool keepAlive, const HttpHeaders& extra);
  bool sendResponseFraming(const std::string& contentType);
  bool sendRequestHead(HttpMethod method, const std::string& url, const std::string& contentType, bool keepAlive,
                       const HttpHeaders& extra);
  bool sendRequestFraming(const std::string& contentType);
  bool sendCredentials(const std::string& authorization);
  bool writePiece(const void* data, int length);
  int exchange(HttpMethod method, const std::string& url, const std::string& body, const std::string& contentType,
               std::string& responseBody, std::string& responseType, bool keepAlive);
};

}  // namespace zorhtml
