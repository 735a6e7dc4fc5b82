#include "tools/jxpush/common/display_text.h"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace jxpush {

namespace {

constexpr char32_t kNone = 0xFFFFFFFF;
constexpr std::size_t kUsualColumns = 80;
constexpr std::size_t kLongestCharacter = 4;
constexpr char32_t kFirstBeyondAscii = 0x80;
constexpr char32_t kLastOfUnicode = 0x10FFFF;

struct Character {
  char32_t code = kNone;  // kNone: no UTF-8
  std::size_t size = 1;
};

// The character at the beginning of `text`, which is not empty.
Character firstOf(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text[0]);
  if (lead < kFirstBeyondAscii) return {lead, 1};
  const std::size_t size = lead >= 0xF0 ? kLongestCharacter : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < size) return {};
  char32_t code = lead & (0x7FU >> size);
  for (std::size_t i = 1; i < size; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xC0U) != 0x80U) return {};
    code = code << 6U | (next & 0x3FU);
  }
  const bool longer = (size == 3 && code < 0x800) || (size == 4 && code < 0x10000);
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  if (longer || surrogate || code > kLastOfUnicode) return {};
  return {code, size};
}

// Which a terminal may obey, also where it takes UTF-8.
bool isControl(char32_t code) { return code < 0x20 || (code >= 0x7F && code <= 0x9F); }

// The library's table of widths is that of the thread's locale; this one is there where the C library's own locales
// are.
class WidthTable {
 public:
  WidthTable() : table_(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {}
  WidthTable(const WidthTable&) = delete;
  WidthTable& operator=(const WidthTable&) = delete;
  ~WidthTable() {
    if (table_ != nullptr) freelocale(table_);
  }
  // Negative for what cannot be shown.
  int widthOf(char32_t code) const {
    if (isControl(code)) return -1;
    if (table_ == nullptr) return code < kFirstBeyondAscii ? 1 : 2;
    const locale_t before = uselocale(table_);
    const int width = wcwidth(static_cast<wchar_t>(code));
    uselocale(before);
    return width;
  }

 private:
  const locale_t table_;
};

int widthOf(char32_t code) {
  static const WidthTable table;
  return table.widthOf(code);
}

// Marks that turn the direction of what follows, and those that end a line or show nothing.
bool isFormat(char32_t code) {
  return code == 0xAD || code == 0x61C || (code >= 0x200B && code <= 0x200F) || (code >= 0x2028 && code <= 0x202E) ||
         (code >= 0x2060 && code <= 0x206F) || code == 0xFEFF || code >= 0xE0000;
}

bool isShown(char32_t code, bool ascii) {
  if (code < U' ' || code == 0x7F) return false;
  if (code < kFirstBeyondAscii) return true;
  return !ascii && !isFormat(code) && widthOf(code) >= 0;
}

}  // namespace

std::string displayText(std::string_view text, bool ascii) {
  std::string shown;
  shown.reserve(text.size());
  while (!text.empty()) {
    const Character character = firstOf(text);
    const bool fits = character.code != kNone && isShown(character.code, ascii);
    shown += fits ? text.substr(0, character.size) : "?";
    text.remove_prefix(character.size);
  }
  return shown;
}

std::string displayText(std::string_view text, std::FILE* stream) {
  return displayText(text, isatty(fileno(stream)) != 0 && std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0);
}

std::size_t columnsOf(std::string_view text) {
  std::size_t columns = 0;
  while (!text.empty()) {
    const Character character = firstOf(text);
    columns += static_cast<std::size_t>(std::max(0, widthOf(character.code)));
    text.remove_prefix(character.size);
  }
  return columns;
}

std::string cutToColumns(std::string_view text, std::size_t columns) {
  std::size_t end = 0;
  std::size_t taken = 0;
  while (end < text.size()) {
    const Character character = firstOf(text.substr(end));
    taken += static_cast<std::size_t>(std::max(0, widthOf(character.code)));
    if (taken > columns) break;
    end += character.size;
  }
  return std::string(text.substr(0, end));
}

std::size_t columnsOfTerminal(std::FILE* stream) {
  winsize size{};
  const bool known = ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return known ? size.ws_col : kUsualColumns;
}

bool isLively(std::FILE* stream) {
  const char* const kind = std::getenv("TERM");
  return isatty(fileno(stream)) != 0 && (kind == nullptr || std::strcmp(kind, "dumb") != 0);
}

bool getsColours(std::FILE* stream) { return isLively(stream) && std::getenv("NO_COLOR") == nullptr; }

}  // namespace jxpush
