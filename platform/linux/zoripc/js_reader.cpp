// JSON text read as a JSObject.
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

}  // namespace

// Builds the value from the parser's events. Neither keeps a stack of calls; the depth is limited for what the value
// meets later.
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
    if (levels_.size() == kMaxDepth) return false;
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

bool JSObject::parse(const std::string& text, JSObject& value) {
  JSObject parsed;
  bool complete = false;
  try {
    Node::Builder builder(parsed);
    complete = jxplatform::findZeroByte(text) == std::string::npos && json::sax_parse(text, &builder);
  } catch (const std::exception&) {
    complete = false;
  }
  value = complete ? std::move(parsed) : JSObject();
  return complete;
}

}  // namespace zoripc
