#pragma once

#include <sys/types.h>

#include <filesystem>
#include <set>
#include <string>

#include "platform/descriptor.h"
#include "platform/qt/port_refused.h"

namespace mvdirigo {

class LockFiles;

/// A lock file that this program holds; letting go of it is its destruction.
class HeldLock {
 public:
  /// `descriptor` is that of `file`, or none where nothing is locked this way.
  HeldLock(LockFiles& files, std::filesystem::path file, Descriptor descriptor);
  HeldLock(HeldLock&& other) noexcept = default;
  HeldLock& operator=(HeldLock&&) = delete;
  ~HeldLock();

  [[nodiscard]] const std::filesystem::path& file() const { return file_; }

 private:
  LockFiles* files_;
  std::filesystem::path file_;
  /// Kept open, so that no other file can look like this one.
  Descriptor descriptor_;
};

/// The lock files by which programs for serial ports have always told each other what they use:
/// `LCK..ttyUSB0` in one folder, whose first line is the number of the process that holds
/// /dev/ttyUSB0. The lines after it are those that programs on Qt look for. Everybody may write to
/// that folder, so a file there is opened without following links and without ever waiting.
class LockFiles {
 public:
  explicit LockFiles(std::filesystem::path folder) : folder_(std::move(folder)) {}
  LockFiles(const LockFiles&) = delete;
  LockFiles& operator=(const LockFiles&) = delete;

  [[nodiscard]] std::filesystem::path fileOf(const std::filesystem::path& device) const;

  /// Why `file` keeps this program from its device; empty when it doesn't. A file that can't be
  /// understood might be somebody's, so it does.
  [[nodiscard]] std::string obstacle(const std::filesystem::path& file) const;

  /// Takes the lock file of `device`, also one that an ended program left behind. Throws
  /// `PortRefused`. On a system without the folder nothing is locked this way.
  [[nodiscard]] HeldLock take(const std::filesystem::path& device);

 private:
  friend class HeldLock;

  /// Removes a lock file that an ended program left behind, unless another program is at it.
  void removeLeftBehind(const std::filesystem::path& file) const;

  std::filesystem::path folder_;
  std::set<std::filesystem::path> held_;
};

/// "It is in use by the program x." of a process; 0 for one that is not known.
[[nodiscard]] std::string inUseText(pid_t holder);

}  // namespace mvdirigo
