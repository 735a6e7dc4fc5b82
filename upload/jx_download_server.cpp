#include "upload/jx_download_server.h"

#include <jxapp.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "base/ignore.h"
#include "base/text.h"
#include "shell/install.h"
#include "shell/source_directory.h"
#include "upload/upload_pages.h"

namespace {

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
  if (path == "/" || base::beginsWith(path, "/?")) return sendResponse(200, kUploadForm, "text/html", {});
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
  base::ignore(jxapp::jxGetCertificateArchive(archive));
  return sendResponse(200, archive, "application/x-tar", {});
}

bool JXDownloadServer::receiveUpload() {
  base::ignore(jxapp::jxInstallCreateSourceDir());  // without it no file can be opened, which shows in the page
  // Made before anything is stored: memory that runs out between reception and installation would leave files behind.
  std::string page = std::string(kUploadResultBegin) + kUploadSuccessful;
  {
    const SourceDirectoryUse use;
    if (receiveMultipart("upload", uploadTarget(), true)) {
      installPackages(page);
    } else {
      page = std::string(kUploadResultBegin) + kUploadFailed;
    }
  }
  page += kUploadResultEnd;
  return sendResponse(200, page, "text/html", {});
}
