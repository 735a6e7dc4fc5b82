// A page on its way to the screen, and what it hands back.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace jxplatform {

// What a page hands back: its result, and the variables it sets or, without a value, removes.
struct PageResult {
  int result = 0;
  std::map<std::string, std::optional<std::string>> vars;
};

// A page that is ready to be shown.
struct PageContent {
  std::string page;  // its file name
  std::map<std::string, std::string> vars;
  std::string html;                    // processed
  std::optional<int> autoResult = {};  // of a synchronous page that returns by itself
  bool standsIn = false;               // for an asynchronous page that could not be read
};

}  // namespace jxplatform
