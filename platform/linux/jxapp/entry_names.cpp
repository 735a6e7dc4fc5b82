#include "platform/linux/jxapp/entry_names.h"

#include <algorithm>

#include "base/text.h"
#include "platform/linux/jxapp/failure.h"

namespace jxinstall {
namespace {

std::string componentProblem(const std::string& component) {
  if (component.empty()) return "the name has an empty component";
  if (component == "." || component == "..") return "the name has the component \"" + component + "\"";
  return "";
}

}  // namespace

std::string nameProblem(const std::string& name) {
  if (name.empty()) return "the name is empty";
  if (name.size() > kMaxNameBytes) {
    return "the name has " + std::to_string(name.size()) + " bytes, at most " + std::to_string(kMaxNameBytes) +
           " are allowed";
  }
  if (name.front() == '/') return "the name is an absolute path";
  for (const char c : name) {
    if (c == '\\') return "the name has a backslash";
    if (!base::isPrintable(c)) return "the name has a character that is not printable ASCII";
  }
  std::size_t begin = 0;
  while (begin <= name.size()) {
    const std::size_t end = std::min(name.find('/', begin), name.size());
    std::string problem = componentProblem(name.substr(begin, end - begin));
    if (!problem.empty()) return problem;
    begin = end + 1;
  }
  return "";
}

void EntryNames::add(const std::string& name, bool directory) {
  const std::string problem = nameProblem(name);
  if (!problem.empty()) throw Failure(base::quotedPrintable(name) + ": " + problem);
  for (std::size_t end = name.find('/'); end != std::string::npos; end = name.find('/', end + 1)) {
    addOne(name.substr(0, end), true, false);
  }
  addOne(name, directory, true);
}

void EntryNames::addOne(const std::string& name, bool directory, bool entry) {
  const auto [place, isNew] = seen_.try_emplace(base::lowerCase(name), Seen{name, directory, entry});
  if (isNew) return;
  Seen& before = place->second;
  if (before.name != name) {
    throw Failure(base::quotedPrintable(name) + ": the name differs from " + base::quotedPrintable(before.name) +
                  " in case only");
  }
  if (before.directory != directory)
    throw Failure(base::quotedPrintable(name) + ": the name is a file and a directory");
  if (before.entry && entry) throw Failure(base::quotedPrintable(name) + ": the name is there twice");
  before.entry = before.entry || entry;
}

}  // namespace jxinstall
