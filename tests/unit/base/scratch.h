// A folder that is gone at the test's end, and its files.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

class Scratch {
 public:
  Scratch() {
    std::string name = (std::filesystem::temp_directory_path() / "jx-base.XXXXXX").string();
    path_ = mkdtemp(name.data());
  }
  ~Scratch() { std::filesystem::remove_all(path_); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

  std::string content(const std::string& name) const {
    std::ifstream file(path_ / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  void put(const std::string& name, const std::string& content) const {
    std::ofstream(path_ / name, std::ios::binary) << content;
  }

  std::set<std::string> names() const {
    std::set<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) found.insert(entry.path().filename().string());
    return found;
  }

 private:
  std::filesystem::path path_;
};
