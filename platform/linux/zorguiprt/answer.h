// What the screen's server answers.
#pragma once

#include <string>

namespace jxplatform {

struct Answer {
  int status = 204;
  std::string contentType;  // empty where there is no body
  std::string body;
  std::string allow;  // the methods that a path takes, where it refuses one
};

// A refusal with its reason as a line of text.
[[nodiscard]] Answer refusal(int status, const std::string& reason);

// The refusal of a method at a path that takes those of `allowed`, "GET, HEAD".
[[nodiscard]] Answer methodRefusal(const std::string& allowed);

}  // namespace jxplatform
