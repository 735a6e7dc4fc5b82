// How every activity shows a page of the terminal's GUI and reads back what the operator did.
#pragma once

#include <zorguiprt.h>

#include <map>
#include <string>

// A page's variables: filled by the activity, handed back changed by the page.
using PageVars = std::map<std::string, std::string>;

// The result of a page that the operator has left.
constexpr int kPageLeft = -1;

// Shows `page` and blocks until it returns; `vars` then holds what it handed back. Returns the page's result. Main
// thread.
int showPage(PageVars& vars, const std::string& page, zorgui::UICallback callback = nullptr, void* data = nullptr);

// Shows `page` and returns at once; the next page replaces it. `callback` runs on a thread of the GUI library.
void showPageAsync(const PageVars& vars, const std::string& page, zorgui::UIAsyncCallback callback = nullptr,
                   void* data = nullptr);

// Shows `page` without variables and blocks until it returns. Returns the page's result.
int showPlainPage(const std::string& page, zorgui::UICallback callback = nullptr, void* data = nullptr);

// The words with which a result page's text begins: bold, on a line of their own, in red for a failure and in green for
// a success. HTML, as is `what` below.
[[nodiscard]] std::string failureHead(const char* words);
[[nodiscard]] std::string successHead(const char* words);

// What a result page says of a failure: "Error:" as such a head, and then `what`.
[[nodiscard]] std::string errorText(const char* what);

// Shows the result page with `text`, beside what `vars` holds already, and blocks until it returns. Main thread.
void showResult(PageVars& vars, const std::string& text);

// The same with errorText(what).
void showError(PageVars& vars, const char* what);

// Formats into `text`, which is cleared first, as the C library's printf does.
void formatText(std::string& text, const char* format, ...) __attribute__((format(printf, 2, 3)));
