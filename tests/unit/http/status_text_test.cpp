#include "http/status_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <string>

namespace zorhtml {
namespace {

const std::map<int, std::string> kTexts = {
    {100, "Continue"},
    {101, "Switching Protocols"},
    {200, "OK"},
    {201, "Created"},
    {202, "Accepted"},
    {203, "Non-Authoritative Information"},
    {204, "No Content"},
    {205, "Reset Content"},
    {206, "Partial Content"},
    {300, "Multiple Choices"},
    {301, "Moved Permanently"},
    {302, "Found"},
    {303, "See Other"},
    {304, "Not Modified"},
    {305, "Use Proxy"},
    {307, "Temporary Redirect"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {402, "Payment Required"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {406, "Not Acceptable"},
    {407, "Proxy Authentication Required"},
    {408, "Request Time-out"},
    {409, "Conflict"},
    {410, "Gone"},
    {411, "Length Required"},
    {412, "Precondition Failed"},
    {413, "Request Entity Too Large"},
    {414, "Request-URI TOO Large"},
    {415, "Unsupported Media Type"},
    {416, "Requested Range Not Satisfiable"},
    {417, "Expectation Failed"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Time-out"},
    {505, "HTTP Version Not Supported"},
};

TEST(StatusText, EveryStatus_HasItsTextOrError) {
  for (int status = -10; status < 1000; ++status) {
    const auto known = kTexts.find(status);
    EXPECT_EQ(statusText(status), known == kTexts.end() ? "Error" : known->second) << status;
  }
}

TEST(StatusText, Extremes_AreErrors) {
  EXPECT_STREQ(statusText(INT_MIN), "Error");
  EXPECT_STREQ(statusText(INT_MAX), "Error");
}

}  // namespace
}  // namespace zorhtml
