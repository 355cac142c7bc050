#include "support.h"

#include <pty.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <QCoreApplication>

#include "core/stored_settings.h"

namespace mvdirigo::bench {
namespace {

Microseconds cpuTime() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto duration = [](const timeval& time) {
    return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
  };
  return duration(usage.ru_utime) + duration(usage.ru_stime);
}

}  // namespace

void require(bool succeeded, const char* what) {
  if (succeeded) return;
  std::perror(what);
  std::exit(1);
}

void pinTo(int core) {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(static_cast<std::size_t>(core), &cores);
  sched_setaffinity(0, sizeof cores, &cores);
}

Line::Line(const std::function<void(int)>& serve, Cores cores) {
  int far_end = -1;
  std::array<char, 64> path{};
  require(openpty(&far_end, &fd_, path.data(), nullptr, nullptr) == 0, "openpty");
  path_ = path.data();
  setRaw(fd_);
  peer_ = fork();
  require(peer_ >= 0, "fork");
  if (peer_ == 0) {
    close(fd_);
    if (cores == Cores::kOneEach) pinTo(1);
    serve(far_end);
    _exit(0);
  }
  close(far_end);
  if (cores == Cores::kOneEach) pinTo(0);
}

Line::~Line() {
  close(fd_);
  waitpid(peer_, nullptr, 0);
}

void setRaw(int line, speed_t rate) {
  termios settings{};
  tcgetattr(line, &settings);
  cfmakeraw(&settings);
  cfsetspeed(&settings, rate);
  require(tcsetattr(line, TCSANOW, &settings) == 0, "tcsetattr");
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(fd, bytes.data(), bytes.size());
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool readThrough(int fd, char last) {
  std::array<char, 256> bytes{};
  ssize_t count = 0;
  do {
    count = read(fd, bytes.data(), bytes.size());
  } while (count > 0 && bytes.at(static_cast<std::size_t>(count) - 1) != last);
  return count > 0;
}

Microseconds Durations::quantile(double part) {
  const auto place = static_cast<std::ptrdiff_t>(part * static_cast<double>(values_.size() - 1));
  std::nth_element(values_.begin(), values_.begin() + place, values_.end());
  return values_[static_cast<std::size_t>(place)];
}

void Durations::print(const char* name) {
  std::printf("%-36s median %8.1f us   p99 %8.1f us   max %8.1f us\n", name, median().count(),
              quantile(0.99).count(), quantile(1).count());
}

CpuShare::CpuShare() : cpu_(cpuTime()) {}

double CpuShare::percent() const {
  return 100 * (cpuTime() - cpu_) / Microseconds(Clock::now() - start_);
}

BoxButton UnattendedPlatform::Answers::messageBox(const std::string& text, int style) {
  platform_.boxes << QString::fromStdString(text.substr(0, text.find_first_of(".\r\n")));
  std::printf("  box: %s\n", qPrintable(platform_.boxes.last()));
  return style & box::kYesNo ? BoxButton::kYes : BoxButton::kOk;
}

Desk::Desk() {
  qputenv("XDG_CONFIG_HOME", folder_.path().toUtf8());
  QCoreApplication::setApplicationName(kApplicationName);
  std::filesystem::create_directories(std::filesystem::path(portLink()).parent_path());
  for (int port = 2; port <= SerialPort::kHighestPort; ++port) link(port, kNoDevice);
}

std::string Desk::portLink(int port) const {
  return file(kApplicationName) + "/ports/com" + std::to_string(port);
}

void Desk::link(int port, const std::string& device) const {
  std::filesystem::remove(portLink(port));
  std::filesystem::create_symlink(device, portLink(port));
}

std::string Desk::file(const char* name) const { return folder_.filePath(name).toStdString(); }

void chooseDisplay() {
  if (!qEnvironmentVariableIsSet("DISPLAY")) qputenv("QT_QPA_PLATFORM", "offscreen");
}

}  // namespace mvdirigo::bench
