#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/descriptor.h"

namespace mvdirigo {

/// A regular file, open for reading. Every call throws `RuntimeError` with the fault that fits.
class InputFile {
 public:
  /// Opens without ever waiting, not even for a pipe's other end. What is no regular file is
  /// refused.
  explicit InputFile(const std::string& path);

  /// Bytes of the file, as of now.
  [[nodiscard]] std::size_t size() const;

  /// Reads into `buffer` from `offset` on. Returns the bytes read, 0 at the end of the file.
  [[nodiscard]] std::size_t readAt(std::int64_t offset, std::span<char> buffer) const;

  /// The first `length` bytes. Throws `kInputPastEndOfFile` when there are fewer.
  [[nodiscard]] std::string start(std::size_t length) const;

  /// All bytes. Throws `kOutOfMemory` when they are more than `most`.
  [[nodiscard]] std::string whole(std::size_t most) const;

 private:
  Descriptor descriptor_;
};

}  // namespace mvdirigo
