// The document in which a browser shows the screen.
#pragma once

#include <string>

namespace jxplatform {

// The document with `title`: an empty <main id="screen">, filled by /pages/screen.js and styled by /pages/style.css.
[[nodiscard]] std::string shellDocument(const std::string& title);

// The policy that the browser holds the document to: everything from this server; no script but its files, so that
// markup in a page's variables can run nothing. Style attributes are allowed, since messages colour themselves by them.
extern const char* const kContentSecurityPolicy;

}  // namespace jxplatform
