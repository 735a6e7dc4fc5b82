#include "upload/jx_download_server.h"

#include <jxapp.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "base/text.h"
#include "shell/install.h"
#include "shell/source_directory.h"

namespace {

constexpr const char* kFormPage =
    "<!DOCTYPE html>\n"
    "<html>\n"
    "<body>\n"
    "<form action='upload' method='post' enctype='multipart/form-data'>\n"
    "  <h1>JX application file upload</h1>\n"
    "  Filename: <input type='file' name='upload' multiple><br>\n"
    "  <input type='submit' value='Upload file'>\n"
    "</form><br>\n"
    "Certificates on terminal: <a href='certificates.tar'>certificates.tar</a>\n"
    "</body>\n"
    "</html>\n";

constexpr const char* kResultPageBegin = "<!DOCTYPE html>\n<html>\n<body>\n<form action='/' method='GET'>\n";
constexpr const char* kResultPageEnd = "<input type='submit' value='OK'>\n</form>\n</body>\n</html>\n";

// A directory whose name does not fit is a mistake in how the terminal is set up, which ends the process.
std::string uploadTarget() {
  std::array<char, 128> name{};
  const int length = std::snprintf(name.data(), name.size(), "%s/upload.zip", jxapp::jxInstallSourceDir());
  if (length < 0 || static_cast<std::size_t>(length) >= name.size()) std::abort();
  return name.data();
}

}  // namespace

JXDownloadServer::~JXDownloadServer() = default;

bool JXDownloadServer::doGET(const std::string& path) {
  if (path == "/" || base::beginsWith(path, "/?")) return sendResponse(200, kFormPage, "text/html", {});
  // A prefix is enough, deliberately: with a query or a longer extension it is the same archive.
  if (base::beginsWith(path, "/certificates.tar")) return sendCertificates();
  return sendNotFound();
}

bool JXDownloadServer::doPOST(const std::string& path) {
  if (path == "/upload") return receiveUpload();
  // Read to its end, so that what follows on the connection is the next request.
  while (readBody(buffer, kBufferSize) > 0) {
  }
  return sendNotFound();
}

bool JXDownloadServer::sendNotFound() { return sendResponse(404, "404 File not found", "text/plain", {}); }

bool JXDownloadServer::sendCertificates() {
  std::string archive;
  // The result is not looked at, deliberately: what there is of the archive is sent.
  static_cast<void>(jxapp::jxGetCertificateArchive(archive));
  return sendResponse(200, archive, "application/x-tar", {});
}

bool JXDownloadServer::receiveUpload() {
  static_cast<void>(jxapp::jxInstallCreateSourceDir());  // without it no file can be opened, which shows in the page
  // Made before anything is stored: memory that runs out between reception and installation would leave files behind.
  std::string page = std::string(kResultPageBegin) + "Upload successful<br>\n";
  {
    const SourceDirectoryUse use;
    if (receiveMultipart("upload", uploadTarget(), true)) {
      installPackages(page);
    } else {
      page = std::string(kResultPageBegin) + "Upload failed<br>\n";
    }
  }
  page += kResultPageEnd;
  return sendResponse(200, page, "text/html", {});
}
