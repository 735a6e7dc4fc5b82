#include "serial/download_session.h"

#include <jxapp.h>

#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "serial/tessolan.h"
#include "shell/install.h"
#include "shell/pages.h"
#include "shell/source_directory.h"

namespace {

constexpr int kCom1 = 3;
constexpr int kCom2 = 4;
constexpr int kAbortPressed = 1;  // the progress page's result
constexpr const char* kPortNames[] = {"", "", "USB", "COM1", "COM2"};
constexpr int kPortNameCount = sizeof kPortNames / sizeof kPortNames[0];

const char* portName(int port) { return port >= 0 && port < kPortNameCount ? kPortNames[port] : ""; }

const char* portDevice(int port) {
  if (port == kCom1) return "/dev/ttyAMA0";
  return port == kCom2 ? "/dev/ttyAMA1" : "/dev/ttyGS0";
}

void abortDownload(void* data, int type, const zorgui::UICallbackData* info) {
  if (type != zorgui::kUICallbackResult || info->result != kAbortPressed) return;
  static_cast<Tessolan*>(data)->requestAbort();
}

void showProgress(const PageVars& vars, void* context) {
  showPageAsync(vars, "download-ddl.html", abortDownload, context);
}

// Records of these names carry settings of other terminals: they are accepted, and nothing is stored.
bool isSetting(const char* name) {
  return std::strncmp(name, "setgroup.", 9) == 0 || std::strncmp(name, "setdrive.", 9) == 0;
}

// Opens the archive `number` of the source directory for writing; null where that fails.
std::FILE* openArchive(int number) {
  jxapp::jxInstallCreateSourceDir();
  char path[128];  // deliberate: a longer path is cut, and fails to open or names another file
  std::snprintf(path, sizeof path, "%s/upload-%d.zip", jxapp::jxInstallSourceDir(), number);
  std::FILE* const file = std::fopen(path, "wb");
  // Unbuffered: a full disk then refuses the block that met it, not the close, which reports nothing.
  if (file != nullptr) std::setvbuf(file, nullptr, _IONBF, 0);
  return file;
}

bool writeAt(std::FILE* file, std::uint32_t offset, const unsigned char* data, std::uint32_t length) {
  // Where long has 32 bits, an offset of 2 GiB or more becomes negative, which fseek refuses.
  if (std::fseek(file, static_cast<long>(offset), SEEK_SET) != 0) return false;
  return std::fwrite(data, 1, length, file) == length;
}

// The outcome as the operator sees it; installs what was received where the download succeeded.
std::string outcomeText(int port, int result) {
  if (result == Tessolan::kAborted) return failureHead("Download aborted");
  if (result == Tessolan::kDone) {
    showPlainPage("install-ddl.html");
    std::string text = successHead("Download successful");
    installPackages(text);
    return text;
  }
  std::string what;
  formatText(what, "%s download failed %d.", portName(port), result);
  return errorText(what.c_str());
}

// Returns the download's result, and puts the outcome as the operator sees it into `text`.
int receiveAndInstall(Tessolan& receiver, int port, std::string& text) {
  const SourceDirectoryUse use;
  const int result = receiver.receive(portDevice(port));
  text = outcomeText(port, result);
  return result;
}

}  // namespace

int download_ddl(int port) {
  // Stores what the host sends. The order of the fields is part of the interface.
  class Callback : public Tessolan::System {
   public:
    explicit Callback(PageVars* pageVars) : vars(pageVars) {}
    ~Callback() override { Callback::closeFile(); }

    // Deliberate: the host's name tells a setting from a file, and nothing else; files are numbered as they come.
    bool openFile(const char* name) override {
      closeFile();
      if (isSetting(name)) return true;
      file = openArchive(counter);
      ++counter;  // deliberate: a failed open uses up its number too
      return file != nullptr;
    }

    bool writeBlock(std::uint32_t offset, const unsigned char* data, std::uint32_t length) override {
      return file != nullptr && writeAt(file, offset, data, length);
    }

    bool closeFile() override {
      if (file != nullptr) std::fclose(file);
      file = nullptr;
      return true;
    }

    bool recordR(const char* /*text*/) override { return true; }

    bool showMessage(const char* text) override {
      if (pageContext == nullptr) return true;
      (*vars)["message"] = text;
      showProgress(*vars, pageContext);
      return true;
    }

    bool recordS() override { return true; }
    bool recordU() override { return true; }

    std::FILE* file = nullptr;
    int counter = 0;
    PageVars* vars;
    void* pageContext = nullptr;  // what the progress page's callback gets
  };

  PageVars vars;
  vars["portname"] = portName(port);
  Callback callback(&vars);
  // Lives until the next session: its page can report a press as long as no other is up, also when an exception ends
  // this one.
  static std::optional<Tessolan> lasting;
  Tessolan& receiver = lasting.emplace(&callback);
  callback.pageContext = &receiver;
  showProgress(vars, &receiver);
  std::string text;
  const int result = receiveAndInstall(receiver, port, text);
  vars["text"] = text;
  showPage(vars, "result.html");
  return result;
}
