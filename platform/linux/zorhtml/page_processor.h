// Pages with processing instructions, as the screen shows them.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace jxplatform {

struct ProcessedPage {
  std::string html;
  std::vector<std::string> problems;  // one line each, with the line of the page it was found in; empty: none
};

// Carries out the processing instructions of `page`, from its beginning to its end; what they insert is not looked
// through again. An instruction is "<?NAME TEXT?>": NAME is a letter and then letters, digits, "-" and "_"; TEXT
// follows after white space and ends before the first "?>", wherever that stands (a script writes "?" + ">").
//
//   <?var V?>     the variable V, escaped (escapeHtml); nothing when there is none
//   <?html text?> the variable "text" as it stands, the one that is HTML by convention; any other is inserted escaped
//                 and is a problem
//   <?NAME …?>    what the processor registered under NAME prints; nothing, and a problem, when it fails
//
// The first two names cannot be registered. Everything else of that form inserts nothing and is a problem: a name
// without a processor, "<?" without a name; an instruction without "?>" also ends the page, since nobody can tell what
// was meant to be shown. Processors change `vars` for the instructions after them and for the caller. Any thread; calls
// processors on this one.
[[nodiscard]] ProcessedPage processPage(const std::string& page, std::map<std::string, std::string>& vars);

}  // namespace jxplatform
