// A JSObject written as JSON text.
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/support/json_text.h"
#include "platform/linux/zoripc/js_node.h"

namespace zoripc {

// Writes the value with a list of the arrays and objects that are open, since a tree may be deeper than the stack.
class JSObject::Node::Writer {
 public:
  std::string write(const JSObject& root) {
    begin(root);
    while (!open_.empty()) {
      Level& level = open_.back();
      if (const JSObject* inner = advance(level)) {
        begin(*inner);
      } else {
        text_ += level.elements != nullptr ? ']' : '}';
        open_.pop_back();
      }
    }
    return std::move(text_);
  }

 private:
  struct Level {
    const Array* elements;  // null for an object
    const Object* members;
    std::size_t index;
    Object::const_iterator member;
    JSObject owned;  // the array or object, where it was built for the writing alone
  };

  void begin(const JSObject& value) {
    if (!value.node_) {
      text_ += "null";
    } else if (const auto* unread = value.node_->held<Unread>()) {
      JSObject whole = build(*unread);
      Node& node = *whole.node_;
      open(node, std::move(whole));
    } else if (value.isArray() || value.isObject()) {
      open(*value.node_, JSObject());
    } else {
      writeScalar(*value.node_);
    }
  }

  void open(Node& node, JSObject owned) {
    const auto* const elements = node.held<Array>();
    const auto* const members = node.held<Object>();
    text_ += elements != nullptr ? '[' : '{';
    open_.push_back(
        {elements, members, 0, members != nullptr ? members->begin() : Object::const_iterator(), std::move(owned)});
  }

  void writeScalar(Node& node) {
    if (const auto* truth = node.held<bool>()) {
      text_ += *truth ? "true" : "false";
    } else if (const auto* integer = node.held<long long>()) {
      text_ += std::to_string(*integer);
    } else if (const auto* number = node.held<double>()) {
      text_ += nlohmann::json(*number).dump();
    } else {
      text_ += jxplatform::quotedJson(*node.held<std::string>());
    }
  }

  // The next value of the level, its separator and name written; null when there is none.
  const JSObject* advance(Level& level) {
    if (level.elements != nullptr) {
      if (level.index == level.elements->size()) return nullptr;
      if (level.index > 0) text_ += ',';
      return &(*level.elements)[level.index++];
    }
    if (level.member == level.members->end()) return nullptr;
    if (level.member != level.members->begin()) text_ += ',';
    text_ += jxplatform::quotedJson(level.member->first) + ":";
    return &(level.member++)->second;
  }

  std::string text_;
  std::vector<Level> open_;
};

std::string JSObject::dump() const { return Node::Writer().write(*this); }

}  // namespace zoripc
