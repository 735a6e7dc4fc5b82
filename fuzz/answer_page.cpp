// Any text as the page that answers an upload, and any messages of an installer as the terminal writes them into such a
// page: the first is read or refused, the second is read, and nothing is in the log that was not in the page.
#include "tools/jxpush/http/answer_page.h"

#include "base/ignore.h"
#include "fuzz/input.h"
#include "shell/install.h"
#include "upload/upload_pages.h"

namespace {

const std::string kBegin = std::string(kUploadResultBegin) + kUploadSuccessful;
const std::string kEnd = kUploadResultEnd;

void checkLog(const jxpush::AnswerPage& page, std::size_t size) {
  std::size_t bytes = 0;
  for (const jxpush::LogLine& line : page.log) bytes += line.text.size();
  require(bytes <= size);
  require(page.stored || page.log.empty());
}

void readAsPage(const std::string& html) {
  if (const auto page = jxpush::parseAnswerPage(html)) checkLog(*page, html.size());
}

// Messages of the installer, each up to a zero byte.
void writeAndRead(const std::string& messages) {
  std::string log;
  for (std::size_t at = 0; at < messages.size();) {
    const std::string message = messages.c_str() + at;
    installLogLine(&log, "%s", message.c_str());
    at += message.size() + 1;
  }
  const auto page = jxpush::parseAnswerPage(kBegin + log + kEnd);
  require(page.has_value() && page->stored);
  checkLog(*page, messages.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  readAsPage(text);
  readAsPage(kBegin + text + kEnd);
  base::ignore(jxpush::isFormPage(text));  // whatever it says, it reads no byte that is not there
  writeAndRead(text);
  return 0;
}
