#include "platform/linux/zorguiprt/stand_in_page.h"

#include "platform/linux/zorhtml/html_escape.h"

namespace jxplatform {

std::string standInPage(const std::string& page, const std::string& reason, bool canBeLeft) {
  const char* const back = canBeLeft ? R"(<button type="button" class="back" data-result="-1">Back</button>
)"
                                     : "";
  const char* const footer = canBeLeft ? R"(<footer>
<button type="button" class="danger" data-result="1" data-key="Escape" data-focus>Abort</button>
</footer>
)"
                                       : "";
  return R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<title>Page missing</title>
</head>
<body>
<header>
)" + std::string(back) +
         R"(<h1>Page missing</h1>
</header>
<section class="content centred">
<p class="message" data-announce="assertive">The page )" +
         escapeHtml(page) + " cannot be read:<br>" + escapeHtml(reason) + R"(.<br>What it is for goes on without it.</p>
</section>
)" + footer +
         R"(</body>
</html>
)";
}

}  // namespace jxplatform
