#include "platform/linux/zorhtml/page_processor.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "base/text.h"
#include "platform/linux/zorhtml/html_escape.h"
#include "platform/linux/zorhtml/script_processors.h"

namespace jxplatform {
namespace {

constexpr const char* kMarkupVariable = "text";

bool isNameByte(char c) { return base::isLetter(c) || base::isDigit(c) || c == '-' || c == '_'; }
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f'; }

std::string trimmed(const std::string& text) {
  std::size_t begin = 0;
  std::size_t end = text.size();
  while (begin < end && isBlank(text[begin])) ++begin;
  while (end > begin && isBlank(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

class PageProcessor {
 public:
  PageProcessor(const std::string& page, std::map<std::string, std::string>& vars) : page_(page), vars_(vars) {}

  ProcessedPage run() {
    std::size_t position = 0;
    while (position < page_.size()) position = copyToInstruction(position);
    return std::move(result_);
  }

 private:
  // Copies up to the next instruction, carries it out, and returns where the page goes on.
  std::size_t copyToInstruction(std::size_t position) {
    const std::size_t begin = page_.find("<?", position);
    result_.html.append(page_, position, begin == std::string::npos ? begin : begin - position);
    if (begin == std::string::npos) return page_.size();
    countLines(begin);
    const std::size_t end = page_.find("?>", begin + 2);
    if (end == std::string::npos) {
      report("an instruction without an end; the rest of the page is left out");
      return page_.size();
    }
    carryOut(page_.substr(begin + 2, end - begin - 2));
    return end + 2;
  }

  void carryOut(const std::string& instruction) {
    std::size_t nameEnd = 0;
    while (nameEnd < instruction.size() && isNameByte(instruction[nameEnd])) ++nameEnd;
    const bool separated = nameEnd == instruction.size() || isBlank(instruction[nameEnd]);
    if (nameEnd == 0 || !base::isLetter(instruction[0]) || !separated) return report("an instruction without a name");

    const std::string name = instruction.substr(0, nameEnd);
    const std::string text = trimmed(instruction.substr(nameEnd));
    if (name == "var") {
      result_.html += escapeHtml(variable(text));
    } else if (name == "html") {
      insertMarkup(text);
    } else {
      runProcessor(name, text);
    }
  }

  std::string variable(const std::string& name) const {
    const auto found = vars_.find(name);
    return found == vars_.end() ? std::string() : found->second;
  }

  void insertMarkup(const std::string& name) {
    if (name == kMarkupVariable) {
      result_.html += variable(name);
      return;
    }
    report("<?html " + name + "?>: only \"text\" is HTML; the variable is inserted escaped");
    result_.html += escapeHtml(variable(name));
  }

  void runProcessor(const std::string& name, const std::string& text) {
    const RegisteredProcessor processor = findScriptProcessor(name);
    if (processor.run == nullptr) return report("<?" + name + " …?>: nothing is registered under this name");
    std::string output;
    bool good = false;
    try {
      good = processor.run(processor.userData, text, vars_, output);
    } catch (const std::exception& error) {
      output = error.what();
    } catch (...) {
      output = "unknown exception";
    }
    if (!good) return report("<?" + name + " …?> failed: " + output);
    result_.html += output;
  }

  void countLines(std::size_t end) {
    using Difference = std::string::difference_type;
    line_ += std::count(page_.begin() + static_cast<Difference>(counted_), page_.begin() + static_cast<Difference>(end),
                        '\n');
    counted_ = end;
  }

  void report(const std::string& problem) {
    result_.problems.push_back("line " + std::to_string(line_) + ": " + problem);
  }

  const std::string& page_;
  std::map<std::string, std::string>& vars_;
  ProcessedPage result_;
  std::string::difference_type line_ = 1;
  std::size_t counted_ = 0;  // how far line_ counts
};

}  // namespace

ProcessedPage processPage(const std::string& page, std::map<std::string, std::string>& vars) {
  return PageProcessor(page, vars).run();
}

}  // namespace jxplatform
