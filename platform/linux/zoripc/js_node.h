// What a JSObject holds.
#pragma once

#include <zoripc.h>

#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace zoripc {

// A value other than null, which is no node at all. Members are kept in the order of their keys' bytes.
struct JSObject::Node {
  class Checker;
  class Parts;
  class Builder;
  class Writer;
  using Array = std::vector<JSObject>;
  using Object = std::map<std::string, JSObject>;

  // An array or object that nobody has looked into yet: the bytes from `begin` to `end` of a text that was found to be
  // JSON, and that all parts of it share. As a tree it would take ten times the memory.
  struct Unread {
    std::shared_ptr<const std::string> text;
    std::size_t begin;
    std::size_t end;

    bool beginsWith(char bracket) const { return (*text)[begin] == bracket; }
  };

  using Value = std::variant<bool, long long, double, std::string, Array, Object, Unread>;

  template <class Kind>
  explicit Node(Kind held) : content(std::in_place_type<Kind>, std::move(held)) {}
  explicit Node(Value held) : content(std::move(held)) {}

  // Whether it is of this kind, read or not.
  template <class Kind>
  bool is() const {
    const auto* const unread = std::get_if<Unread>(&content);
    if (unread == nullptr) return std::holds_alternative<Kind>(content);
    return std::is_same_v<Kind, Array> ? unread->beginsWith('[')
                                       : std::is_same_v<Kind, Object> && unread->beginsWith('{');
  }

  // What is held when it is of this kind, else null. An array or object that was not read yet is read, one level deep.
  template <class Kind>
  Kind* as() {
    if (std::holds_alternative<Unread>(content) && is<Kind>()) read();
    return held<Kind>();
  }

  // The same but for what was not read yet, which stays so and gives null.
  template <class Kind>
  Kind* held() {
    return std::get_if<Kind>(&content);
  }

  // The value of a part of a JSON text: a number, a string or the like at once, an array or object as what was not read
  // yet.
  [[nodiscard]] static JSObject valueOf(Unread part);

  // The whole tree of what was not read yet.
  [[nodiscard]] static JSObject build(const Unread& unread);

  Value content;
  std::unique_ptr<Node> next;  // chains the nodes that wait to be taken apart

 private:
  void read();
};

}  // namespace zoripc
