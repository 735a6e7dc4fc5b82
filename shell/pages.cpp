#include "shell/pages.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <utility>

namespace {

std::string headOf(const char* colour, const char* words) {
  std::string html = "<span style='color:";
  html.append(colour).append("'><b>").append(words).append("</b></span><br>");
  return html;
}

}  // namespace

int showPage(PageVars& vars, const std::string& page, zorgui::UICallback callback, void* data) {
  return zorgui::uiInvokeURL(0, 0, vars, page, callback, data);
}

void showPageAsync(const PageVars& vars, const std::string& page, zorgui::UIAsyncCallback callback, void* data) {
  zorgui::uiInvokeURLAsync(0, 0, vars, page, callback, data);
}

int showPlainPage(const std::string& page, zorgui::UICallback callback, void* data) {
  PageVars vars;
  return showPage(vars, page, callback, data);
}

std::string failureHead(const char* words) { return headOf("#f00", words); }

std::string successHead(const char* words) { return headOf("#0f0", words); }

std::string errorText(const char* what) {
  std::string html = failureHead("Error:");
  html += what;
  return html;
}

void showResult(PageVars& vars, const std::string& text) {
  vars["text"] = text;
  showPage(vars, "result.html");
}

void showError(PageVars& vars, const char* what) { showResult(vars, errorText(what)); }

void formatText(std::string& text, const char* format, ...) {
  text.clear();  // before the arguments are read: a text that is its own argument is empty there
  va_list args;
  va_start(args, format);
  const int length = std::vsnprintf(nullptr, 0, format, args);
  va_end(args);
  std::string formatted;
  if (length > 0) {
    const auto size = static_cast<std::size_t>(length);
    formatted.resize(size + 1);  // room for the zero byte that the C library adds
    va_start(args, format);
    std::vsnprintf(formatted.data(), size + 1, format, args);
    va_end(args);
    formatted.resize(size);
  }
  text = std::move(formatted);
}
