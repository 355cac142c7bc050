#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace mvdirigo {

/// The owner of one file descriptor, or of none (-1).
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() { static_cast<void>(close()); }

  [[nodiscard]] bool isOpen() const { return number_ >= 0; }
  [[nodiscard]] int number() const { return number_; }

  /// Closes the descriptor if there is one. Returns what the system's close did: 0, or -1 with
  /// `errno` set; the descriptor is gone either way.
  [[nodiscard]] int close() {
    if (!isOpen()) return 0;
    return ::close(std::exchange(number_, -1));
  }

 private:
  int number_;
};

/// Whether what was written is on the disk, for what can be there: a full disk can show as late as
/// that. `errno` tells why not.
[[nodiscard]] inline bool reachedDisk(int descriptor) {
  return ::fsync(descriptor) == 0 || errno == EINVAL;
}

}  // namespace mvdirigo
