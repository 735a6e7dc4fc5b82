// A line of the terminal's installation log.
#pragma once

#include <string>

namespace jxpush {

struct LogLine {
  enum class Kind { Plain, Error, Warning, List };
  Kind kind = Kind::Plain;
  std::string text;  // plain, without a line end; may hold any other byte

  bool operator==(const LogLine& other) const { return kind == other.kind && text == other.text; }
};

}  // namespace jxpush
