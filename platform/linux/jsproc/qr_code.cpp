#include "platform/linux/jsproc/qr_code.h"

#include <cstdint>
#include <qrcodegen.hpp>
#include <vector>

#include "platform/linux/zorhtml/html_escape.h"

namespace jxplatform {
namespace {

using qrcodegen::QrCode;

constexpr int kQuietZone = 4;  // modules on each side

// A rectangle one module high.
void appendRun(std::string& path, int x, int y, int width) {
  const std::string length = std::to_string(width);
  path.append("M").append(std::to_string(x)).append(" ").append(std::to_string(y));
  path.append("h").append(length).append("v1h-").append(length).append("z");
}

// The dark modules as the path of one rectangle for each horizontal run.
std::string darkModules(const QrCode& code) {
  std::string path;
  for (int y = 0; y < code.getSize(); ++y) {
    int x = 0;
    while (x < code.getSize()) {
      const int begin = x;
      while (x < code.getSize() && code.getModule(x, y)) ++x;
      if (x > begin) appendRun(path, begin + kQuietZone, y + kQuietZone, x - begin);
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
    std::string svg = R"(<svg class="qr" viewBox="0 0 )" + size;
    svg.append(" ").append(size).append(R"(" shape-rendering="crispEdges" role="img" aria-label="QR code: )");
    svg.append(escapeHtml(text)).append(R"("><rect width=")").append(size).append(R"(" height=")").append(size);
    svg.append(R"(" fill="#fff"/><path fill="#000" d=")").append(darkModules(code)).append(R"("/></svg>)");
    return svg;
  } catch (const qrcodegen::data_too_long&) {
    return {};
  }
}

}  // namespace jxplatform
