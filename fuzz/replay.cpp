#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Stands in for libFuzzer: runs every file of the folders that are named, and an empty input.
int main(int argc, char** argv) {
  LLVMFuzzerTestOneInput(nullptr, 0);
  int inputs = 0;
  for (int argument = 1; argument < argc; ++argument) {
    if (argv[argument][0] == '-') continue;  // an option of libFuzzer's
    for (const auto& entry : std::filesystem::directory_iterator(argv[argument])) {
      std::ifstream file(entry.path(), std::ios::binary);
      const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
      const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
      LLVMFuzzerTestOneInput(input.data(), input.size());
      ++inputs;
    }
  }
  std::printf("%d inputs\n", inputs);
  return inputs > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
