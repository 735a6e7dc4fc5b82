// JSObject: construction, access, change. Trees may be far deeper than the stack has room for calls, so that nothing
// here recurses.
#include <cmath>
#include <limits>
#include <utility>

#include "platform/linux/zoripc/js_node.h"

namespace zoripc {

namespace {

// Never destroyed: callers may hold references to it while the process ends.
const JSObject& nullObject() {
  static const auto* const null = new JSObject();
  return *null;
}

int clampToInt(double value) {
  if (std::isnan(value)) return 0;
  if (value >= std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
  if (value <= std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
  return static_cast<int>(value);
}

int clampToInt(long long value) {
  if (value > std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
  if (value < std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
  return static_cast<int>(value);
}

}  // namespace

JSObject::JSObject() = default;
JSObject::JSObject(bool value) : node_(std::make_unique<Node>(value)) {}
JSObject::JSObject(int value) : JSObject(static_cast<long long>(value)) {}
JSObject::JSObject(long long value) : node_(std::make_unique<Node>(value)) {}
JSObject::JSObject(double value) : node_(std::make_unique<Node>(value)) {}
JSObject::JSObject(const char* value) {
  if (value != nullptr) node_ = std::make_unique<Node>(std::string(value));
}
JSObject::JSObject(const std::string& value) : node_(std::make_unique<Node>(value)) {}
JSObject::JSObject(JSObject&& other) noexcept = default;

JSObject JSObject::array() {
  JSObject made;
  made.node_ = std::make_unique<Node>(Node::Array());
  return made;
}

JSObject JSObject::object() {
  JSObject made;
  made.node_ = std::make_unique<Node>(Node::Object());
  return made;
}

// Copies from a list of what is still to be copied. The addresses in it stay good: an array's copy has its full size
// before any of its elements is entered.
JSObject::JSObject(const JSObject& other) {
  std::vector<std::pair<const JSObject*, JSObject*>> waiting{{&other, this}};
  while (!waiting.empty()) {
    const JSObject* from = waiting.back().first;
    JSObject* to = waiting.back().second;
    waiting.pop_back();
    if (!from->node_) continue;
    if (const auto* elements = from->node_->held<Node::Array>()) {
      *to = array();
      auto& copies = *to->node_->held<Node::Array>();
      copies.resize(elements->size());
      for (std::size_t i = 0; i < copies.size(); ++i) waiting.emplace_back(&(*elements)[i], &copies[i]);
    } else if (const auto* members = from->node_->held<Node::Object>()) {
      *to = object();
      auto& copies = *to->node_->held<Node::Object>();
      for (const auto& member : *members) waiting.emplace_back(&member.second, &copies[member.first]);
    } else {
      to->node_ = std::make_unique<Node>(from->node_->content);
    }
  }
}

JSObject& JSObject::operator=(const JSObject& other) {
  if (this != &other) *this = JSObject(other);
  return *this;
}

// `other` may be a part of what is replaced: it is emptied first.
JSObject& JSObject::operator=(JSObject&& other) noexcept {
  if (this != &other) {
    JSObject taken(std::move(other));
    std::swap(node_, taken.node_);
  }
  return *this;
}

// Moves the children of each node into a chain before the node goes, which needs neither depth nor memory.
JSObject::~JSObject() {
  std::unique_ptr<Node> chain = std::move(node_);
  const auto enchain = [&chain](JSObject& child) {
    if (!child.node_) return;
    child.node_->next = std::move(chain);
    chain = std::move(child.node_);
  };
  while (chain) {
    const std::unique_ptr<Node> node = std::move(chain);
    chain = std::move(node->next);
    if (auto* elements = node->held<Node::Array>()) {
      for (JSObject& element : *elements) enchain(element);
    } else if (auto* members = node->held<Node::Object>()) {
      for (auto& member : *members) enchain(member.second);
    }
  }
}

bool JSObject::isNull() const { return !node_; }
bool JSObject::isBool() const { return node_ && node_->is<bool>(); }
bool JSObject::isInt() const { return node_ && node_->is<long long>(); }
bool JSObject::isDouble() const { return node_ && node_->is<double>(); }
bool JSObject::isString() const { return node_ && node_->is<std::string>(); }
bool JSObject::isArray() const { return node_ && node_->is<Node::Array>(); }
bool JSObject::isObject() const { return node_ && node_->is<Node::Object>(); }

bool JSObject::has(const std::string& name) const {
  const auto* members = node_ ? node_->as<Node::Object>() : nullptr;
  return members != nullptr && members->count(name) != 0;
}

JSObject& JSObject::operator[](const std::string& name) {
  if (!isObject()) *this = object();
  return (*node_->as<Node::Object>())[name];
}

const JSObject& JSObject::operator[](const std::string& name) const {
  const auto* members = node_ ? node_->as<Node::Object>() : nullptr;
  if (members == nullptr) return nullObject();
  const auto member = members->find(name);
  return member == members->end() ? nullObject() : member->second;
}

JSObject& JSObject::operator[](const char* name) { return (*this)[std::string(name)]; }

const JSObject& JSObject::operator[](const char* name) const { return (*this)[std::string(name)]; }

std::size_t JSObject::size() const {
  if (!node_) return 0;
  if (const auto* elements = node_->as<Node::Array>()) return elements->size();
  if (const auto* members = node_->as<Node::Object>()) return members->size();
  return 0;
}

const JSObject& JSObject::at(std::size_t index) const {
  const auto* elements = node_ ? node_->as<Node::Array>() : nullptr;
  return elements != nullptr && index < elements->size() ? (*elements)[index] : nullObject();
}

void JSObject::append(const JSObject& element) {
  JSObject copy(element);  // before anything changes: the element may be this value or a part of it
  if (!isArray()) *this = array();
  node_->as<Node::Array>()->push_back(std::move(copy));
}

bool JSObject::getBool() const { return isBool() && *node_->as<bool>(); }

int JSObject::getInt() const {
  if (isInt()) return clampToInt(*node_->as<long long>());
  return isDouble() ? clampToInt(*node_->as<double>()) : 0;
}

double JSObject::getDouble() const {
  if (isInt()) return static_cast<double>(*node_->as<long long>());
  return isDouble() ? *node_->as<double>() : 0;
}

std::string JSObject::getString() const { return isString() ? *node_->as<std::string>() : std::string(); }

}  // namespace zoripc
