// The terminal's web site: a form to upload packages, and the certificate archive.
#pragma once

#include <string>

#include "http/http_thread.h"

// The server end of one connection. It has no data of its own; the listener copies a prototype for each connection.
class JXDownloadServer : public zorhtml::HttpThread {
 public:
  JXDownloadServer() = default;
  JXDownloadServer(const JXDownloadServer&) = default;
  JXDownloadServer& operator=(const JXDownloadServer&) = delete;
  ~JXDownloadServer() override;

  // Serves the form and the archive.
  bool doGET(const std::string& path) override;
  // Receives an upload, installs it and answers with the installer's log. Blocks until the installation has ended.
  bool doPOST(const std::string& path) override;

 protected:
  // Receives the request's body as a form and stores the files of the form field `field` under the name `target`; when
  // `multiple` is true, all of them, under the names that "-0", "-1" and so on before the extension give, otherwise
  // the first. Reads the body to its end. True when at least one file was stored; none is left behind in part. Blocks.
  [[nodiscard]] bool receiveMultipart(const std::string& field, const std::string& target, bool multiple);

 private:
  class Reception;

  [[nodiscard]] bool sendNotFound();
  [[nodiscard]] bool sendCertificates();
  [[nodiscard]] bool receiveUpload();
};
