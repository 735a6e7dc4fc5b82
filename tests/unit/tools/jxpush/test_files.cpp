#include "tests/unit/tools/jxpush/test_files.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <random>

#include "serial/crc16.h"

TestFiles::TestFiles() {
  char folder[] = "/tmp/jxpush-XXXXXX";
  folder_ = mkdtemp(folder);
}

TestFiles::~TestFiles() {
  const std::string command = "rm -rf " + folder_;
  if (std::system(command.c_str()) != 0) ADD_FAILURE() << command;
}

void TestFiles::add(const std::string& name, const std::string& content) {
  std::ofstream(path(name), std::ios::binary) << content;
  files_.emplace_back(path(name));
  files_.back().readDigest();
}

std::string mixedBytes(std::size_t size) {
  std::mt19937 random(7);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same bytes each time
  std::string bytes;
  for (std::size_t i = 0; i < size; ++i) bytes += static_cast<char>(random() & 0xFFU);
  return bytes;
}

std::string recordOf(const std::string& covered) {
  const std::uint16_t crc = crc16(covered.data(), covered.size());
  return "\x02" + covered + static_cast<char>(crc >> 8U) + static_cast<char>(crc & 0xFFU);
}
