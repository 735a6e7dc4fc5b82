// Runs a fuzzer over the files of a folder, each whole and cut at its middle.
//
// Usage: PROGRAM FOLDER
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    std::ifstream file(entry.path(), std::ios::binary);
    const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
    const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    LLVMFuzzerTestOneInput(data, bytes.size());
    LLVMFuzzerTestOneInput(data, bytes.size() / 2);
    ++files;
  }
  std::cout << files << " inputs\n";
  return files == 0 ? 1 : 0;
}
