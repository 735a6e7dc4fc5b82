#include "tests/support/in_child.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <stdexcept>

namespace {

int output = -1;  // in a child: where its result goes

std::string readAll(int input) {
  std::string all;
  std::array<char, 4096> piece{};
  ssize_t count = 0;
  while ((count = read(input, piece.data(), piece.size())) > 0)
    all.append(piece.data(), static_cast<std::size_t>(count));
  return all;
}

}  // namespace

std::string inChild(const std::function<std::string()>& work) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) throw std::runtime_error("no pipe");
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no child");
  if (child == 0) {
    output = ends[1];
    endChild(work());
  }
  close(ends[1]);
  std::string result = readAll(ends[0]);
  close(ends[0]);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  return result;
}

void endChild(const std::string& result) {
  const bool written = write(output, result.data(), result.size()) == static_cast<ssize_t>(result.size());
  std::fflush(nullptr);
  _exit(written && !testing::Test::HasFailure() ? 0 : 1);
}
