#include "tools/jxpush/fleet/target_list.h"

#include <cerrno>
#include <fstream>
#include <iostream>
#include <map>
#include <utility>

#include "base/file_io.h"
#include "tools/jxpush/common/problem.h"

namespace jxpush {

namespace {

constexpr std::size_t kLongestLine = 1000;
constexpr std::size_t kMostTargets = 10000;
constexpr const char* kBlanks = " \t\r";

std::string withoutBlanks(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

std::string withoutComment(const std::string& line) {
  for (std::size_t at = line.find('#'); at != std::string::npos; at = line.find('#', at + 1)) {
    if (at == 0 || line[at - 1] == ' ' || line[at - 1] == '\t') return line.substr(0, at);
  }
  return line;
}

class Collector {
 public:
  explicit Collector(const ReadTarget& read) : read_(read) {}

  // `place` stands before messages.
  void add(const std::string& place, const std::string& typed, const std::string& name) {
    try {
      NamedTarget target = read_(typed);
      if (!name.empty()) target.name = name;
      const auto [other, isNew] = places_.emplace(target.key, place + typed);
      if (!isNew) throw Problem(ExitCode::kUsage, typed + ": the same terminal as in \"" + other->second + '"');
      if (targets.size() == kMostTargets) throw Problem(ExitCode::kUsage, typed + ": one target too many");
      targets.push_back(std::move(target));
    } catch (const Problem& problem) {
      throw Problem(problem.code(), place + problem.what());
    }
  }

  void addList(std::istream& list, const std::string& name) {
    std::string line;
    for (std::size_t number = 1; std::getline(list, line); ++number) {
      const std::string place = name + ":" + std::to_string(number) + ": ";
      if (line.size() > kLongestLine || line.find('\0') != std::string::npos) {
        throw Problem(ExitCode::kUsage, place + "this is no list of targets");
      }
      const std::string text = withoutBlanks(withoutComment(line));
      const std::size_t blank = text.find_first_of(kBlanks);
      if (!text.empty())
        add(place, text.substr(0, blank), blank == std::string::npos ? "" : withoutBlanks(text.substr(blank)));
    }
    if (list.bad()) throw Problem(ExitCode::kInput, name + ": " + base::errorText(errno));
  }

  std::vector<NamedTarget> targets;

 private:
  const ReadTarget& read_;
  std::map<std::string, std::string> places_;  // by key
};

}  // namespace

std::vector<NamedTarget> collectTargets(const Options& options, const ReadTarget& read) {
  Collector collector(read);
  for (const std::string& typed : options.targets) collector.add("--to ", typed, "");
  if (options.targetsFile == "-") {
    collector.addList(std::cin, "standard input");
  } else if (!options.targetsFile.empty()) {
    std::ifstream list(options.targetsFile);
    if (!list) throw Problem(ExitCode::kInput, options.targetsFile + ": " + base::errorText(errno));
    collector.addList(list, options.targetsFile);
  }
  if (collector.targets.empty()) throw Problem(ExitCode::kUsage, options.targetsFile + ": has no target");
  return std::move(collector.targets);
}

}  // namespace jxpush
