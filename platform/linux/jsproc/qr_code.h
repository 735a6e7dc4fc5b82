// QR codes as pictures for pages.
#pragma once

#include <string>

namespace jxplatform {

// `text` (any bytes) as a QR code: an <svg> element of class "qr", dark on light with the four modules of quiet zone
// that scanners need, named for assistive technology by the escaped text. Its size is the style sheet's. Empty when the
// text is empty or does not fit a QR code (2953 bytes).
[[nodiscard]] std::string qrCodeSvg(const std::string& text);

}  // namespace jxplatform
