// The terminal's script processor library (libjsproc): scripts in pages.
#pragma once

#include <map>
#include <string>

namespace js {

// A zorhtml::ScriptProcessor for JavaScript. The page's variables are the properties of the global object `vars`;
// `print(text)` inserts markup as it stands, `escape(text)` makes it safe, `qr(text)` gives the markup of a QR code. A
// script that fails or runs longer than a second ends with false and the reason in `output`. `userData` is not used.
// Any thread.
bool jsProcessorExt(void* userData, const std::string& script, std::map<std::string, std::string>& vars,
                    std::string& output);

}  // namespace js
