// Text as HTML.
#pragma once

#include <string>

namespace jxplatform {

// `text` with & < > " ' as entities, fit for an element's content and for a quoted attribute value; a zero byte, which
// HTML does not allow, becomes a blank. Everything else stays as it is.
[[nodiscard]] inline std::string escapeHtml(const std::string& text) {
  std::string html;
  html.reserve(text.size() + text.size() / 8);
  for (const char c : text) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      case '\'':
        html += "&apos;";
        break;
      case '\0':
        html += ' ';
        break;
      default:
        html += c;
    }
  }
  return html;
}

}  // namespace jxplatform
