// What a request asks for.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace jxplatform {

// A path and what follows its "?", both decoded: "%41" is "A", in the query "+" is a blank. What is no code for a byte
// stands for itself, and any byte may come of one that is.
struct RequestTarget {
  std::string path;  // the slashes at its beginning as one: clients append a path to the screen's URL
  std::multimap<std::string, std::string> parameters;
};

// Reads "PATH?NAME=VALUE&…#…", each part but the path optional. Every text is read; one that does not begin with a
// slash names nothing of this server.
[[nodiscard]] RequestTarget parseTarget(std::string_view target);

}  // namespace jxplatform
