#include <span>

#include "property.h"
#include "support/files.h"

/// Stands in for libFuzzer: runs every file of the folders that are named, and an empty input.
int main(int argc, char** argv) {
  mvdirigo::check({});
  int inputs = 0;
  for (const std::string_view argument :
       std::span(argv, static_cast<std::size_t>(argc)).subspan(1)) {
    if (argument.starts_with('-')) continue;  // an option of libFuzzer's
    for (const auto& entry : std::filesystem::directory_iterator(argument)) {
      mvdirigo::check(mvdirigo::bytesOf(entry.path()));
      ++inputs;
    }
  }
  std::printf("%d inputs\n", inputs);
  return inputs > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
