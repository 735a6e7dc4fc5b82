// What a JSObject holds.
#pragma once

#include <zoripc.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace zoripc {

// A value other than null, which is no node at all. Members are kept in the order of their keys' bytes.
struct JSObject::Node {
  class Builder;
  class Writer;
  using Array = std::vector<JSObject>;
  using Object = std::map<std::string, JSObject>;

  using Value = std::variant<bool, long long, double, std::string, Array, Object>;

  template <class Kind>
  explicit Node(Kind held) : content(std::in_place_type<Kind>, std::move(held)) {}
  explicit Node(Value held) : content(std::move(held)) {}

  template <class Kind>
  const Kind* as() const {
    return std::get_if<Kind>(&content);
  }

  template <class Kind>
  Kind* as() {
    return std::get_if<Kind>(&content);
  }

  Value content;
  std::unique_ptr<Node> next;  // chains the nodes that wait to be taken apart
};

}  // namespace zoripc
