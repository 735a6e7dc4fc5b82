// What of a folder stays out of its package.
#pragma once

#include <string>
#include <vector>

namespace jxpack {

// Patterns, of which the last that fits a path decides. `*`, `?` and `[...]` stand for characters of one component. A
// pattern without a slash, but for one at its end, holds for names at every depth; another one for the path below the
// folder. A slash at the end: folders only. A `!` in front: what fits is packed after all, unless a folder above it is
// left out.
class Exclusions {
 public:
  // Begins with what no application needs: the files of version control, editors' backups and those of desktops, and
  // what jxpack itself reads.
  Exclusions();

  // `source` says where the pattern is from, for whoever reads what was left out. Throws Problem (exit code 2) when the
  // pattern is empty or has `**`.
  void add(const std::string& pattern, const std::string& source);

  // Adds the lines of a .jxignore, of which empty ones and those that begin with `#` say nothing. Throws as add() does.
  void addLines(const std::string& text);

  // Why `path`, below the folder, stays out; empty when it does not.
  [[nodiscard]] std::string reasonFor(const std::string& path, bool folder) const;

 private:
  struct Rule {
    std::string pattern;
    std::string reason;
    bool foldersOnly = false;
    bool wholePath = false;
    bool takesBack = false;
  };

  std::vector<Rule> rules_;
};

}  // namespace jxpack
