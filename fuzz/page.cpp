// Any text as a page with processing instructions: it is processed to its end, what is inserted escaped cannot make an
// element, and the result stays in proportion.
#include <zorhtml.h>

#include <stdexcept>

#include "fuzz/input.h"
#include "platform/linux/zorhtml/page_processor.h"

namespace {

using Vars = std::map<std::string, std::string>;

constexpr const char* kMark = "<\x01>&\"'";  // the value of "v"; no other page holds a \x01

bool print(void* /*data*/, const std::string& script, Vars& vars, std::string& output) {
  if (script.size() > 1) vars[script.substr(0, 2)] = kMark;
  output += script;
  return true;
}

bool refuse(void* /*data*/, const std::string& /*script*/, Vars& /*vars*/, std::string& output) {
  output = "refused";
  return false;
}

bool throwIt(void* /*data*/, const std::string& script, Vars& vars, std::string& /*output*/) {
  vars.clear();
  throw std::runtime_error(script);
}

void registerProcessors() {
  zorhtml::htmlSetScriptProcessor("js", print, nullptr);
  zorhtml::htmlSetScriptProcessor("no", refuse, nullptr);
  zorhtml::htmlSetScriptProcessor("throw", throwIt, nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  registerProcessors();
  const std::string page(reinterpret_cast<const char*>(data), size);
  Vars vars{{"v", kMark}, {"text", "<b>bold</b>"}, {"", "no name"}};
  const jxplatform::ProcessedPage processed = jxplatform::processPage(page, vars);
  require(processed.html.size() <= size * 8);
  require(processed.problems.size() <= size / 2);
  for (const std::string& problem : processed.problems) require(problem.compare(0, 5, "line ") == 0);
  if (page.find('\x01') == std::string::npos) require(processed.html.find("<\x01") == std::string::npos);
  if (page.find("<?") == std::string::npos) require(processed.html == page && processed.problems.empty());
  return 0;
}
