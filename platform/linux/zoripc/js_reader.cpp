// JSON text read as a JSObject: checked at once, and taken apart level by level as somebody looks into it.
#include <exception>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/support/json_text.h"
#include "platform/linux/zoripc/js_node.h"

namespace zoripc {

namespace {

using nlohmann::json;

constexpr std::size_t kMaxDepth = 100;
constexpr const char* kBlanks = " \t\r\n";

}  // namespace

// Takes what is JSON and not too deep. The parser keeps no stack of calls; the depth is limited for what the value
// meets later.
class JSObject::Node::Checker : public nlohmann::json_sax<json> {
 public:
  bool null() override { return true; }
  bool boolean(bool /*value*/) override { return true; }
  bool number_integer(number_integer_t /*value*/) override { return true; }
  bool number_unsigned(number_unsigned_t /*value*/) override { return true; }
  bool number_float(number_float_t /*value*/, const string_t& /*text*/) override { return true; }
  bool string(string_t& /*value*/) override { return true; }
  bool binary(binary_t& /*value*/) override { return false; }
  bool start_object(std::size_t /*elements*/) override { return ++depth_ <= kMaxDepth; }
  bool key(string_t& /*value*/) override { return true; }
  bool end_object() override { return shut(); }
  bool start_array(std::size_t /*elements*/) override { return ++depth_ <= kMaxDepth; }
  bool end_array() override { return shut(); }
  bool parse_error(std::size_t /*position*/, const std::string& /*token*/, const json::exception& /*error*/) override {
    return false;
  }

 private:
  bool shut() {
    --depth_;
    return true;
  }

  std::size_t depth_ = 0;
};

// Builds the value from the parser's events.
class JSObject::Node::Builder : public nlohmann::json_sax<json> {
 public:
  explicit Builder(JSObject& root) : root_(root) {}

  bool null() override { return put(JSObject()); }
  bool boolean(bool value) override { return put(JSObject(value)); }
  bool number_integer(number_integer_t value) override { return put(JSObject(static_cast<long long>(value))); }
  // Called for every integer without a sign, whatever its size.
  bool number_unsigned(number_unsigned_t value) override {
    constexpr auto kLargest = static_cast<number_unsigned_t>(std::numeric_limits<long long>::max());
    return value <= kLargest ? put(JSObject(static_cast<long long>(value))) : put(JSObject(static_cast<double>(value)));
  }
  bool number_float(number_float_t value, const string_t& /*text*/) override { return put(JSObject(value)); }
  bool string(string_t& value) override { return put(JSObject(value)); }
  bool binary(binary_t& /*value*/) override { return false; }
  bool start_object(std::size_t /*elements*/) override { return open(JSObject::object()); }
  bool key(string_t& value) override {
    key_ = std::move(value);
    return true;
  }
  bool end_object() override { return shut(); }
  bool start_array(std::size_t /*elements*/) override { return open(JSObject::array()); }
  bool end_array() override { return shut(); }
  bool parse_error(std::size_t /*position*/, const std::string& /*token*/, const json::exception& /*error*/) override {
    return false;
  }

 private:
  // An open array or object. It goes into its parent when it is shut: until then the elements of a growing array have
  // no lasting address.
  struct Level {
    JSObject value;
    std::string key;
  };

  bool open(JSObject&& value) {
    levels_.push_back({std::move(value), std::move(key_)});
    return true;
  }

  bool shut() {
    Level level = std::move(levels_.back());
    levels_.pop_back();
    key_ = std::move(level.key);
    return put(std::move(level.value));
  }

  bool put(JSObject&& value) {
    if (levels_.empty()) {
      root_ = std::move(value);
      return true;
    }
    Node& parent = *levels_.back().value.node_;
    if (auto* elements = parent.as<Array>()) {
      elements->push_back(std::move(value));
    } else {
      (*parent.as<Object>())[key_] = std::move(value);
    }
    return true;
  }

  JSObject& root_;
  std::string key_;
  std::vector<Level> levels_;
};

// The parts of an array or object that was found to be JSON, one after the other: what stands between its brackets.
class JSObject::Node::Parts {
 public:
  explicit Parts(const Unread& whole) : text_(whole.text), at_(whole.begin + 1) { skipSeparators(); }

  bool atEnd() const { return (*text_)[at_] == ']' || (*text_)[at_] == '}'; }

  // The next value, or the name of a member.
  JSObject take() {
    Unread part{text_, at_, endOfValue()};
    at_ = part.end;
    skipSeparators();
    return valueOf(std::move(part));
  }

 private:
  void skipSeparators() { at_ = text_->find_first_not_of(" \t\r\n,:", at_); }

  std::size_t endOfValue() const {
    const char first = (*text_)[at_];
    if (first == '"') return endOfString(at_);
    if (first != '[' && first != '{') return text_->find_first_of(" \t\r\n,]}", at_);
    std::size_t depth = 0;
    for (std::size_t at = at_;; ++at) {
      at = text_->find_first_of("\"[]{}", at);
      const char c = (*text_)[at];
      if (c == '"') {
        at = endOfString(at) - 1;
      } else if (c == '[' || c == '{') {
        ++depth;
      } else if (--depth == 0) {
        return at + 1;
      }
    }
  }

  std::size_t endOfString(std::size_t begin) const {
    std::size_t at = begin + 1;
    while ((*text_)[at] != '"') at += (*text_)[at] == '\\' ? 2U : 1U;
    return at + 1;
  }

  std::shared_ptr<const std::string> text_;
  std::size_t at_;
};

JSObject JSObject::Node::valueOf(Unread part) {
  if (!part.beginsWith('[') && !part.beginsWith('{')) return build(part);
  JSObject value;
  value.node_ = std::make_unique<Node>(std::move(part));
  return value;
}

JSObject JSObject::Node::build(const Unread& unread) {
  JSObject built;
  Builder builder(built);
  const char* const text = unread.text->data();
  json::sax_parse(text + unread.begin, text + unread.end, &builder);
  return built;
}

void JSObject::Node::read() {
  const Unread whole = *held<Unread>();
  Parts parts(whole);
  if (whole.beginsWith('[')) {
    Array elements;
    while (!parts.atEnd()) elements.push_back(parts.take());
    content = std::move(elements);
    return;
  }
  Object members;
  while (!parts.atEnd()) {
    const std::string name = parts.take().getString();
    members[name] = parts.take();
  }
  content = std::move(members);
}

bool JSObject::parse(std::string text, JSObject& value) {
  value = JSObject();
  try {
    Node::Checker checker;
    if (jxplatform::findZeroByte(text) != std::string::npos || !json::sax_parse(text, &checker)) return false;
    const std::size_t begin = text.find_first_not_of(kBlanks);
    const std::size_t end = text.find_last_not_of(kBlanks) + 1;
    value = Node::valueOf({std::make_shared<const std::string>(std::move(text)), begin, end});
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace zoripc
