#include "upload/server_only.h"

#include "base/ignore.h"
#include "http/listener.h"
#include "upload/http_port.h"
#include "upload/jx_download_server.h"

void runServerOnly() {
  zorhtml::ServerSettings settings(httpPort);
  const JXDownloadServer server;
  base::ignore(zorhtml::serve(settings, server));
}
