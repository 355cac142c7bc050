#include "platform/qt/lock_files.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <utility>

namespace mvdirigo {
namespace {

namespace fs = std::filesystem;

Descriptor openLockFile(const fs::path& file, int flags) {
  return Descriptor(
      ::open(file.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644));
}

/// The process number at the start of a lock file, in decimal or, of old, as four bytes; 0 for
/// something else.
pid_t holderIn(std::string_view content) {
  std::int32_t holder = 0;
  // Text has no zero in it, and the number of a process always has.
  if (content.size() == sizeof holder && content.find('\0') != content.npos) {
    std::memcpy(&holder, content.data(), sizeof holder);
    return std::max(holder, 0);
  }
  const std::size_t blanks = std::min(content.find_first_not_of(' '), content.size());
  const auto parsed =
      std::from_chars(content.data() + blanks, content.data() + content.size(), holder);
  return parsed.ec == std::errc() ? std::max(holder, 0) : 0;
}

/// Whether `file` is the very file that `descriptor` stands for.
bool isFileOf(const Descriptor& descriptor, const fs::path& file) {
  struct stat own {};
  struct stat named {};
  return fstat(descriptor.number(), &own) == 0 && lstat(file.c_str(), &named) == 0 &&
         own.st_dev == named.st_dev && own.st_ino == named.st_ino;
}

bool isAlive(pid_t process) { return kill(process, 0) == 0 || errno == EPERM; }

std::string removalAdvice(const fs::path& file) {
  return " If no program uses the port, remove " + file.string() + '.';
}

PortRefused notWritten(int error_number, const fs::path& file) {
  return {openingFault(error_number), "Its lock file " + file.string() + " can't be written (" +
                                          std::strerror(error_number) +
                                          "). It needs room and write permission there."};
}

std::string contentOfOwnLock() {
  std::error_code error;
  const std::string program = fs::read_symlink("/proc/self/exe", error).filename().string();
  std::array<char, 256> host{};
  gethostname(host.data(), host.size() - 1);
  std::array<char, 16> process{};
  std::snprintf(process.data(), process.size(), "%10d\n", static_cast<int>(getpid()));
  return process.data() + program + '\n' + host.data() + '\n';
}

}  // namespace

std::string inUseText(pid_t holder) {
  if (holder == getpid()) return "It is in use by this program.";
  std::string name;
  if (holder > 0) std::getline(std::ifstream("/proc/" + std::to_string(holder) + "/comm"), name);
  return "It is in use by " + (name.empty() ? "another program" : "the program " + name) + '.';
}

HeldLock::HeldLock(LockFiles& files, fs::path file, Descriptor descriptor)
    : files_(&files), file_(std::move(file)), descriptor_(std::move(descriptor)) {
  if (descriptor_.isOpen()) files_->held_.insert(file_);
}

HeldLock::~HeldLock() {
  if (!descriptor_.isOpen()) return;
  // What another program put in its place is that program's.
  if (isFileOf(descriptor_, file_)) ::unlink(file_.c_str());
  files_->held_.erase(file_);
}

fs::path LockFiles::fileOf(const fs::path& device) const {
  std::string name = device.lexically_relative("/dev").string();
  std::replace(name.begin(), name.end(), '/', '_');
  return folder_ / ("LCK.." + name);
}

std::string LockFiles::obstacle(const fs::path& file) const {
  const Descriptor lock = openLockFile(file, O_RDONLY);
  if (!lock.isOpen()) {
    if (errno == ENOENT || errno == ENOTDIR) return {};
    if (errno != ELOOP) {
      return "Its lock file can't be read (" + std::string(std::strerror(errno)) + ")." +
             removalAdvice(file);
    }
  }
  struct stat status {};
  if (!lock.isOpen() || fstat(lock.number(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return "What stands in place of its lock file is none." + removalAdvice(file);
  }
  std::array<char, 64> content;
  const ssize_t size = read(lock.number(), content.data(), content.size());
  const pid_t holder =
      holderIn({content.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))});
  if (holder == 0) return "Its lock file doesn't tell who uses it." + removalAdvice(file);
  // A file of ours that we don't hold is from a program that had this process's number before.
  const bool held = holder == getpid() ? held_.contains(file) : isAlive(holder);
  return held ? inUseText(holder) : std::string();
}

// Of two programs that both judge a file left behind, the second would remove the lock that the
// first has made meanwhile. So the file is locked itself, and looked at again.
void LockFiles::removeLeftBehind(const fs::path& file) const {
  const Descriptor stale = openLockFile(file, O_RDONLY);
  const bool alone =
      stale.isOpen() && flock(stale.number(), LOCK_EX | LOCK_NB) == 0 && isFileOf(stale, file);
  if (alone && obstacle(file).empty()) ::unlink(file.c_str());
}

HeldLock LockFiles::take(const fs::path& device) {
  const fs::path file = fileOf(device);
  constexpr int kAttempts = 3;
  for (int attempt = 1;; ++attempt) {
    Descriptor lock = openLockFile(file, O_WRONLY | O_CREAT | O_EXCL);
    if (lock.isOpen()) {
      const int number = lock.number();
      HeldLock held(*this, file, std::move(lock));
      // Whatever this user hides by default: the others must see who holds the port.
      fchmod(number, 0644);
      const std::string content = contentOfOwnLock();
      const ssize_t written = write(number, content.data(), content.size());
      if (written == static_cast<ssize_t>(content.size())) return held;
      throw notWritten(written < 0 ? errno : ENOSPC, file);
    }
    if (errno == ENOENT || errno == ENOTDIR) return {*this, {}, Descriptor()};
    if (errno != EEXIST) throw notWritten(errno, file);
    if (std::string text = obstacle(file); !text.empty()) {
      throw PortRefused(Fault::kPortAlreadyOpen, std::move(text));
    }
    if (attempt == kAttempts) {
      throw PortRefused(Fault::kPortAlreadyOpen,
                        "Its lock file was left behind." + removalAdvice(file));
    }
    removeLeftBehind(file);
  }
}

}  // namespace mvdirigo
