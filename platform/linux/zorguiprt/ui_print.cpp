#include <zorguiprt.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <utility>

#include "base/ignore.h"
#include "platform/linux/zorhtml/html_escape.h"

namespace zorgui {
namespace {

// What "%S" inserts: entities, and white space as a page shows it.
std::string escapeText(const std::string& text) {
  std::string html;
  for (const char c : jxplatform::escapeHtml(text)) {
    if (c == '\n') {
      html += "<br>";
    } else {
      html += c == '\t' || c == '\r' ? ' ' : c;
    }
  }
  return html;
}

constexpr int kNone = -1;  // no width or precision was given

// One conversion of a format: "%-08.3ld" and the like, with "*" filled in.
struct Conversion {
  std::string flags;
  int width = kNone;
  int precision = kNone;
  std::string length;
  char type = '\0';  // '\0': the format ended, or the letter is no conversion

  // The conversion as the C library takes it, with another letter.
  std::string as(char letter) const {
    std::string text = "%" + flags;
    if (width >= 0) text += std::to_string(width);
    if (precision >= 0) text += "." + std::to_string(precision);
    return text + length + letter;
  }
};

// Wider is taken for a mistake in the format; the C library would try to give it the memory.
constexpr int kLargestWidth = 100'000;

class Formatter {
 public:
  Formatter(const char* format, va_list args) : at_(format) { va_copy(args_, args); }
  ~Formatter() { va_end(args_); }
  Formatter(const Formatter&) = delete;
  Formatter& operator=(const Formatter&) = delete;

  std::string run() {
    while (*at_ != '\0') {
      const std::size_t plain = std::strcspn(at_, "%");
      text_.append(at_, plain);
      at_ += plain;
      if (*at_ == '%') convert();
    }
    return std::move(text_);
  }

 private:
  void convert() {
    const char* const begin = at_++;
    const Conversion conversion = parse();
    if (conversion.type == '\0') {
      text_.append(begin, at_);  // as it stands, as the C library does; it takes no argument
    } else if (!isLength(conversion.length)) {
      at_ = begin + std::strlen(begin);
      text_.append(begin, at_);  // and the rest too: which argument belongs to which conversion is not known any more
    } else {
      print(conversion);
    }
  }

  Conversion parse() {
    Conversion conversion;
    while (isOneOf("-+ #0'I")) conversion.flags += *at_++;
    parseWidth(conversion);
    if (*at_ == '.') {
      ++at_;
      conversion.precision = *at_ == '*' ? std::max(argument(), kNone) : digits();
    }
    while (isOneOf("hlqjztL")) conversion.length += *at_++;
    if (isOneOf("diouxXeEfFgGaAcsSCpnm%")) conversion.type = *at_++;
    if (!takesText(conversion.type)) conversion.precision = std::min(conversion.precision, kLargestWidth);
    return conversion;
  }

  void parseWidth(Conversion& conversion) {
    if (*at_ == '*') {
      const int width = std::max(argument(), -kLargestWidth);
      if (width < 0) conversion.flags += '-';
      conversion.width = std::abs(width);
    } else if (isOneOf("123456789")) {
      conversion.width = digits();
    }
    conversion.width = std::min(conversion.width, kLargestWidth);
  }

  bool isOneOf(const char* letters) const { return *at_ != '\0' && std::strchr(letters, *at_) != nullptr; }

  static bool isLength(const std::string& length) {
    constexpr const char* kLengths[] = {"", "hh", "h", "l", "ll", "q", "j", "z", "t", "L"};
    return std::find(std::begin(kLengths), std::end(kLengths), length) != std::end(kLengths);
  }

  static bool takesText(char type) { return type == 's' || type == 'S'; }

  template <typename Value>
  Value take() {
    // The analyzer does not follow a list that is a member: the constructor has made it.
    return va_arg(args_, Value);  // NOLINT(clang-analyzer-valist.Uninitialized)
  }

  int argument() {
    ++at_;
    return take<int>();
  }

  // The number at this place, 0 where there is none; too many digits give the largest.
  int digits() {
    std::int64_t value = 0;
    while (*at_ >= '0' && *at_ <= '9') value = std::min<std::int64_t>(value * 10 + (*at_++ - '0'), INT32_MAX);
    return static_cast<int>(value);
  }

  void print(const Conversion& conversion) {
    switch (conversion.type) {
      case 'd':
      case 'i':
        return printSigned(conversion);
      case 'o':
      case 'u':
      case 'x':
      case 'X':
        return printUnsigned(conversion);
      case 'c':
      case 'C':
        return printCharacter(conversion);
      case 's':
        return printText(conversion);
      case 'S':
        return printEscaped(conversion);
      case 'p':
        return add(conversion.as('p'), take<void*>());
      case 'm':
        return add(conversion.as('m'), 0);  // takes no argument
      case 'n':
        base::ignore(take<void*>());
        return;  // deliberately stores nothing: a format must not write to memory
      case '%':
        text_ += '%';
        return;
      default:
        return printFloating(conversion);
    }
  }

  void printSigned(const Conversion& conversion) {
    const std::string directive = conversion.as(conversion.type);
    if (isLongLong(conversion)) return add(directive, take<long long>());
    if (conversion.length == "l") return add(directive, take<long>());
    if (conversion.length == "j") return add(directive, take<std::intmax_t>());
    if (conversion.length == "z") return add(directive, take<std::size_t>());
    if (conversion.length == "t") return add(directive, take<std::ptrdiff_t>());
    add(directive, take<int>());
  }

  void printUnsigned(const Conversion& conversion) {
    const std::string directive = conversion.as(conversion.type);
    if (isLongLong(conversion)) return add(directive, take<unsigned long long>());
    if (conversion.length == "l") return add(directive, take<unsigned long>());
    if (conversion.length == "j") return add(directive, take<std::uintmax_t>());
    if (conversion.length == "z") return add(directive, take<std::size_t>());
    if (conversion.length == "t") return add(directive, take<std::ptrdiff_t>());
    add(directive, take<unsigned>());
  }

  static bool isLongLong(const Conversion& conversion) {
    return conversion.length == "ll" || conversion.length == "q" || conversion.length == "L";
  }

  void printFloating(const Conversion& conversion) {
    const std::string directive = conversion.as(conversion.type);
    if (conversion.length == "L") return add(directive, take<long double>());
    add(directive, take<double>());
  }

  void printCharacter(const Conversion& conversion) {
    const std::string directive = conversion.as(conversion.type);
    if (conversion.length == "l" || conversion.type == 'C') return add(directive, take<std::wint_t>());
    add(directive, take<int>());
  }

  void printText(const Conversion& conversion) {
    if (conversion.length == "l") return add(conversion.as('s'), take<const wchar_t*>());
    add(conversion.as('s'), take<const char*>());
  }

  // Width and precision count the text before it is escaped.
  void printEscaped(const Conversion& conversion) {
    const std::size_t begin = text_.size();
    printText(conversion);
    const std::string plain = text_.substr(begin);
    text_.resize(begin);
    text_ += escapeText(plain);
  }

  // Appends one conversion; nothing when the C library cannot do it (a wide character that the locale lacks).
  template <typename... Value>
  void add(const std::string& directive, Value... value) {
    const int size = std::snprintf(nullptr, 0, directive.c_str(), value...);
    if (size <= 0) return;
    const std::size_t begin = text_.size();
    text_.resize(begin + static_cast<std::size_t>(size) + 1);
    std::snprintf(&text_[begin], static_cast<std::size_t>(size) + 1, directive.c_str(), value...);
    text_.resize(begin + static_cast<std::size_t>(size));
  }

  const char* at_;
  va_list args_;
  std::string text_;
};

}  // namespace

std::string uiPrintV(const char* format, va_list args) {
  return format == nullptr ? std::string() : Formatter(format, args).run();
}

std::string uiPrint(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = uiPrintV(format, args);
  va_end(args);
  return text;
}

}  // namespace zorgui
