#pragma once

#include <sys/mman.h>
#include <sys/types.h>
#include <termios.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include <QTemporaryDir>
#include <QWidget>

#include "platform/qt/qt_platform.h"

namespace mvdirigo::bench {

/// CLOCK_MONOTONIC, which both processes of a benchmark read alike.
using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

/// Ends the program with the system's reason when a step of the set-up failed.
void require(bool succeeded, const char* what);

/// A point in time that one process writes and the other reads. The bytes on the line order them.
class Stamp {
 public:
  void take() { ticks_ = Clock::now().time_since_epoch().count(); }
  Clock::time_point get() const { return Clock::time_point(Clock::duration(ticks_)); }

 private:
  std::atomic<Clock::rep> ticks_;
};

/// A `T` in memory that a forked process shares.
template <class T>
T& makeShared() {
  void* memory =
      mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  require(memory != MAP_FAILED, "mmap");
  return *new (memory) T;
}

/// A pseudo-terminal whose other end is served by a process of its own. To be made before the
/// application object, which starts threads.
class Line {
 public:
  enum class Cores { kOneEach, kAny };

  /// `serve` gets the file descriptor of the other end, on which reads fail once the line is
  /// closed.
  explicit Line(const std::function<void(int)>& serve, Cores cores = Cores::kOneEach);
  ~Line();
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  const std::string& path() const { return path_; }
  /// An open, blocking file descriptor of the near end.
  int fd() const { return fd_; }

 private:
  std::string path_;
  int fd_ = -1;
  pid_t peer_ = 0;
};

/// Has a line hand every byte on as it is. A port that was open leaves it otherwise.
void setRaw(int line, speed_t rate = B9600);

/// Puts this process on one core: a unit and its host don't share one.
void pinTo(int core);

/// Writes all of `bytes`. Returns whether the line took them.
bool writeAll(int fd, std::string_view bytes);

/// Reads until `last` is the last byte that came. Returns false when the line is closed.
bool readThrough(int fd, char last);

class Durations {
 public:
  void add(Microseconds duration) { values_.push_back(duration); }
  /// `part` from 0 to 1; 0.5 is the median.
  Microseconds quantile(double part);
  Microseconds median() { return quantile(0.5); }
  /// A line with median, 99th percentile, and longest.
  void print(const char* name);

 private:
  std::vector<Microseconds> values_;
};

/// Measures the CPU time of this process against the time that passes.
class CpuShare {
 public:
  CpuShare();
  /// Percent of one core since it was made.
  double percent() const;

 private:
  Clock::time_point start_ = Clock::now();
  Microseconds cpu_;
};

/// The machine for real use, except that nobody sits at it: boxes are answered with their first
/// button, and open dialogs with `file_to_open`.
class UnattendedPlatform : public QtPlatform {
 public:
  Dialogs& dialogs() override { return answers_; }
  std::string file_to_open;
  /// How the texts of the boxes shown begin.
  QStringList boxes;

 private:
  class Answers : public Dialogs {
   public:
    explicit Answers(UnattendedPlatform& platform) : platform_(platform) {}
    BoxButton messageBox(const std::string& text, int style) override;
    std::string openFile(const FileRequest&) override { return platform_.file_to_open; }
    std::string saveFile(const FileRequest&) override { return platform_.file_to_open; }

   private:
    UnattendedPlatform& platform_;
  };

  Answers answers_{*this};
};

/// A configuration folder of its own, in which the ports 2 to 16 lead nowhere: the console tries
/// them at its start. Sets the application's name. To be made before the platform.
class Desk {
 public:
  Desk();
  /// Makes `line` port 1.
  explicit Desk(const Line& line) : Desk() { plug(line.path()); }
  /// Makes `device` port 1.
  void plug(const std::string& device) const { link(1, device); }
  /// Leaves port 1 without a device.
  void unplug() const { link(1, kNoDevice); }
  std::string file(const char* name) const;
  /// The link that says which device the port is.
  std::string portLink(int port = 1) const;

 private:
  static constexpr const char* kNoDevice = "/dev/no-device";

  void link(int port, const std::string& device) const;

  QTemporaryDir folder_;
};

/// Chooses a platform plug-in that works without a display when there is none.
void chooseDisplay();

template <class Control>
Control& find(const QWidget& window, const char* name) {
  auto* control = window.findChild<Control*>(name);
  require(control != nullptr, name);
  return *control;
}

}  // namespace mvdirigo::bench
