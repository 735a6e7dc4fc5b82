#include "tests/unit/platform/jxapp/scratch.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <algorithm>

namespace fs = std::filesystem;

Scratch::Scratch() {
  path_ = fs::temp_directory_path() / "jxapp-test-XXXXXX";
  if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("mkdtemp");
}

Scratch::~Scratch() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

void Scratch::write(const std::string& file, const std::string& content) const {
  const fs::path full = fs::path(path_) / file;
  fs::create_directories(full.parent_path());
  std::ofstream stream(full, std::ios::binary | std::ios::trunc);
  stream << content;
  if (!stream.flush()) throw std::runtime_error("cannot write " + full.string());
}

std::string Scratch::read(const std::string& file) const {
  const std::ifstream stream(fs::path(path_) / file, std::ios::binary);
  if (!stream) return "<none>";
  std::ostringstream content;
  content << stream.rdbuf();
  return content.str();
}

bool Scratch::exists(const std::string& file) const {
  return fs::symlink_status(fs::path(path_) / file).type() != fs::file_type::not_found;
}

unsigned Scratch::mode(const std::string& file) const {
  struct stat status {};
  if (lstat((path_ + '/' + file).c_str(), &status) != 0) throw std::runtime_error("no " + file);
  return status.st_mode & 07777U;
}

std::vector<std::string> Scratch::tree(const std::string& directory) const {
  std::vector<std::string> found;
  const fs::path base = fs::path(path_) / directory;
  if (!fs::exists(base)) return found;
  for (const auto& entry : fs::recursive_directory_iterator(base)) {
    const std::string name = entry.path().lexically_relative(base).string();
    if (entry.is_symlink()) {
      found.push_back(name + '@');
    } else if (entry.is_directory()) {
      found.push_back(name + '/');
    } else {
      found.push_back(name + '=' + read((fs::path(directory) / name).string()));
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

int anonymousFile(const std::string& content) {
  std::string name = fs::temp_directory_path() / "jxapp-file-XXXXXX";
  const int fd = mkstemp(name.data());
  if (fd < 0) throw std::runtime_error("mkstemp");
  unlink(name.c_str());
  if (write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
    throw std::runtime_error("write");
  }
  return fd;
}
