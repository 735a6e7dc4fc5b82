#include "upload/http_download.h"

#include <unistd.h>
#include <zoripc.h>

#include <optional>

#include "base/ignore.h"
#include "http/listener.h"
#include "shell/pages.h"
#include "upload/http_port.h"
#include "upload/jx_download_server.h"
#include "upload/terminal_addresses.h"

namespace {

constexpr int kAttempts = 10;

void waitForAddresses(PageVars& vars, AddressList& addresses) {
  vars["text"] = "Checking network.";
  showPageAsync(vars, "wait.html");
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    findTerminalAddresses(addresses);
    if (!addresses.empty()) return;
    sleep(1);
  }
}

void showNoAddress(PageVars& vars) {
  showError(vars, "Cannot fetch terminal IP address.<br>Network not (yet) running?");
}

std::string urlOf(const std::string& address) {
  const bool isIPv6 = address.find(':') != std::string::npos;
  return zorgui::uiPrint(isIPv6 ? "http://[%s]:%d" : "http://%s:%d", address.c_str(), httpPort);
}

void setUrlList(PageVars& vars, const AddressList& addresses) {
  zoripc::JSObject list = zoripc::JSObject::array();
  for (const auto& address : addresses) {
    zoripc::JSObject entry = zoripc::JSObject::object();
    entry["if_name"] = address.first;
    entry["url"] = urlOf(address.second);
    list.append(entry);
  }
  vars["url_list"] = list.dump();
}

void serveWhileShown(PageVars& vars, const AddressList& addresses) {
  // Live until the next time: a press can be reported as long as no other page is up, also when this call has ended.
  static std::optional<zorhtml::ServerSettings> lasting;
  zorhtml::ServerSettings& settings = lasting.emplace(httpPort);
  vars.clear();
  setUrlList(vars, addresses);
  // Shown before the server listens, deliberately: where the port is taken, the next page replaces it at once.
  showPageAsync(vars, "download-http.html", stopOnPageEnd, &settings);
  const JXDownloadServer prototype;
  base::ignore(zorhtml::serve(settings, prototype));
}

}  // namespace

void runHttpDownload() {
  PageVars vars;
  AddressList addresses;
  waitForAddresses(vars, addresses);
  if (addresses.empty()) {
    showNoAddress(vars);
  } else {
    serveWhileShown(vars, addresses);
  }
}

void stopOnPageEnd(void* data, int type, const zorgui::UICallbackData* info) {
  if (data == nullptr || type != zorgui::kUICallbackResult || info == nullptr || info->result != kPageLeft) return;
  static_cast<zorhtml::ServerSettings*>(data)->stop.store(true, std::memory_order_relaxed);
}
