#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace mvdirigo {

/// A folder of a test's own, while it exists.
struct TemporaryFolder {
  TemporaryFolder() : path(std::filesystem::temp_directory_path() / "mvdirigo-test-XXXXXX") {
    std::string name = path.string();
    if (::mkdtemp(name.data()) == nullptr) std::abort();
    path = name;
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::filesystem::path path;
};

inline std::string bytesOf(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

inline void writeFile(const std::filesystem::path& file, const std::string& bytes) {
  std::ofstream(file, std::ios::binary) << bytes;
}

}  // namespace mvdirigo
