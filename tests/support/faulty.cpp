// Does what a sanitizer has to find: faulty address|undefined|thread.
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

int readBeyondTheEnd() {
  const std::vector<int> numbers(4);
  volatile std::size_t at = 4;
  return numbers.data()[at];
}

int overflow() {
  volatile int largest = INT_MAX;
  return largest + 1;
}

int race() {
  int shared = 0;
  std::thread other([&shared] {
    for (int i = 0; i < 100000; ++i) ++shared;
  });
  for (int i = 0; i < 100000; ++i) ++shared;
  other.join();
  return shared;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string kind = argc == 2 ? argv[1] : "";
  int result = 0;
  if (kind == "address") {
    result = readBeyondTheEnd();
  } else if (kind == "undefined") {
    result = overflow();
  } else if (kind == "thread") {
    result = race();
  } else {
    return 2;
  }
  std::printf("%d\n", result);
  return 0;
}
