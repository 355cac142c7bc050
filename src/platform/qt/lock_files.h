#pragma once

#include <sys/types.h>

#include <filesystem>
#include <set>
#include <string>

#include "platform/qt/port_refused.h"

namespace mvdirigo {

class LockFiles;

/// A lock file that this program holds; letting go of it is its destruction.
class HeldLock {
 public:
  HeldLock(LockFiles& files, std::filesystem::path file);
  HeldLock(HeldLock&& other) noexcept;
  HeldLock& operator=(HeldLock&&) = delete;
  ~HeldLock();

  const std::filesystem::path& file() const { return file_; }

 private:
  LockFiles* files_;
  std::filesystem::path file_;
  ino_t inode_ = 0;
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

  std::filesystem::path fileOf(const std::filesystem::path& device) const;

  /// Why `file` keeps this program from its device; empty when it doesn't. A file that can't be
  /// understood might be somebody's, so it does.
  std::string obstacle(const std::filesystem::path& file) const;

  /// Takes the lock file of `device`, also one that an ended program left behind. Throws
  /// `PortRefused`. On a system without the folder nothing is locked this way.
  HeldLock take(const std::filesystem::path& device);

 private:
  friend class HeldLock;

  /// Removes a lock file that an ended program left behind, unless another program is at it.
  void removeLeftBehind(const std::filesystem::path& file) const;

  std::filesystem::path folder_;
  std::set<std::filesystem::path> held_;
};

/// "It is in use by the program x." of a process; 0 for one that is not known.
std::string inUseText(pid_t holder);

}  // namespace mvdirigo
