// A request to the screen's server.
#pragma once

#include <map>
#include <string>

namespace jxplatform {

struct Request {
  enum class Body { kWhole, kTooLong, kIncomplete };

  std::string method;                              // as it was sent: "GET"
  std::string target;                              // as it was sent, nothing decoded: "/api/screen?after=0"
  std::multimap<std::string, std::string> fields;  // those of the head, the names in lower case
  Body bodyState = Body::kWhole;
  std::string body;  // without the framing of chunks; all of it only where it is whole
};

}  // namespace jxplatform
