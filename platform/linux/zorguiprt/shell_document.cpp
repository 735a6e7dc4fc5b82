#include "platform/linux/zorguiprt/shell_document.h"

#include "platform/linux/zorhtml/html_escape.h"

namespace jxplatform {

const char* const kContentSecurityPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; style-src-attr 'unsafe-inline'; img-src 'self' data:; "
    "font-src 'self'; connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

std::string shellDocument(const std::string& title) {
  return R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>)" +
         escapeHtml(title) +
         R"(</title>
<link rel="icon" href="data:,">
<link rel="stylesheet" href="/pages/style.css">
</head>
<body>
<main id="screen" tabindex="-1"></main>
<noscript>This page shows the terminal's screen. It needs JavaScript: switch it on in this browser, then load the page again.</noscript>
<script src="/pages/screen.js"></script>
</body>
</html>
)";
}

}  // namespace jxplatform
