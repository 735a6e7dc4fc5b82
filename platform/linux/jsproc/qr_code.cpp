#include "platform/linux/jsproc/qr_code.h"

#include <cstdint>
#include <qrcodegen.hpp>
#include <vector>

#include "platform/linux/zorhtml/html_escape.h"

namespace jxplatform {
namespace {

using qrcodegen::QrCode;

constexpr int kQuietZone = 4;  // modules on each side

// The dark modules as the path of one rectangle for each horizontal run.
std::string darkModules(const QrCode& code) {
  std::string path;
  for (int y = 0; y < code.getSize(); ++y) {
    int x = 0;
    while (x < code.getSize()) {
      const int begin = x;
      while (x < code.getSize() && code.getModule(x, y)) ++x;
      if (x > begin) {
        const std::string width = std::to_string(x - begin);
        path += "M" + std::to_string(begin + kQuietZone) + " " + std::to_string(y + kQuietZone) + "h" + width + "v1h-" +
                width + "z";
      }
      ++x;
    }
  }
  return path;
}

}  // namespace

std::string qrCodeSvg(const std::string& text) {
  if (text.empty()) return {};
  try {
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    // The lowest level first: the library raises it as far as the code grows no larger by it.
    const QrCode code = QrCode::encodeBinary(bytes, QrCode::Ecc::LOW);
    const std::string size = std::to_string(code.getSize() + 2 * kQuietZone);
    return "<svg class=\"qr\" viewBox=\"0 0 " + size + " " + size +
           "\" shape-rendering=\"crispEdges\" role=\"img\" aria-label=\"QR code: " + escapeHtml(text) +
           "\"><rect width=\"" + size + "\" height=\"" + size + "\" fill=\"#fff\"/><path fill=\"#000\" d=\"" +
           darkModules(code) + "\"/></svg>";
  } catch (const qrcodegen::data_too_long&) {
    return {};
  }
}

}  // namespace jxplatform
