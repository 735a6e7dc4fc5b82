// The terminal's GUI library (libzorguiprt): pages on the screen, and formatting with HTML escaping.
#pragma once

#include <cstdarg>
#include <map>
#include <string>

namespace zorgui {

// What an asynchronous page's callback is told.
struct UICallbackData {
  int result;  // with kUICallbackResult: the value that the page returned
};

constexpr int kUICallbackResult = 0;  // the callback type of a page's result

// Callback of a synchronous page, asked again and again on the thread that shows it: true lets the page go on, false
// ends it with -1.
using UICallback = bool (*)(void* data);

// Callback of an asynchronous page; runs on a thread of the library, one at a time, and must not throw. `info` is valid
// during the call.
using UIAsyncCallback = void (*)(void* data, int type, const UICallbackData* info);

// Shows `page` with `vars` and blocks until it returns. `vars` then holds what the page handed back. The two numbers
// are 0. Returns the page's result; -1 also when the page cannot be shown. A page that returns by itself does so soon
// whether or not anybody sees it.
int uiInvokeURL(int region, int flags, std::map<std::string, std::string>& vars, const std::string& page,
                UICallback callback, void* data);

// Shows `page` with a copy of `vars` and returns at once; the next page replaces it. `callback` (may be null) is told
// the page's results while the page is up, until one is -1: the operator has left it. Where the page's file cannot be
// read, another page stands in, which can be left: the callback is then told 1, by which a page aborts what goes on
// behind it, and -1. Where no page can be shown at all it is told both at once; where there is no thread to tell that,
// this call tells it itself. When the next call that shows a page has put it up or returned, the callback has ended and
// is not called any more.
void uiInvokeURLAsync(int region, int flags, const std::map<std::string, std::string>& vars, const std::string& page,
                      UIAsyncCallback callback, void* data);

// printf-style formatting into a string. Besides the C library's conversions, "%S" inserts a char string HTML-escaped:
// & < > " ' become entities, line feed "<br>", tab and carriage return one blank. "%n" stores nothing.
std::string uiPrint(const char* format, ...);
std::string uiPrintV(const char* format, va_list args);

// The GUI service's version, owned by the library; null when it is not known.
const char* gui_GetSvcVersion();

}  // namespace zorgui
