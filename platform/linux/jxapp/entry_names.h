// Which names the entries of a package may have.
#pragma once

#include <map>
#include <string>

namespace jxinstall {

constexpr std::size_t kMaxNameBytes = 255;

// What is wrong with `name` as the path of a file or directory (without a slash at its end) below an application's
// folder; empty when nothing is. A name has 1 to 255 bytes of printable ASCII without backslash, in components parted
// by single slashes, none of them "." or "..".
[[nodiscard]] std::string nameProblem(const std::string& name);

// The names of one package, taken one by one.
class EntryNames {
 public:
  // Throws Failure when `name` has a problem, was there before, differs from an earlier name or part of one in case
  // only, or is a file where an earlier name has a directory or the other way round.
  void add(const std::string& name, bool directory);

 private:
  struct Seen {
    std::string name;
    bool directory = false;
    bool entry = false;  // has an entry of its own, not only entries below it
  };

  void addOne(const std::string& name, bool directory, bool entry);

  std::map<std::string, Seen> seen_;  // by the name in lower case
};

}  // namespace jxinstall
