#include "simulator/program/pty.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace mvdirigo {
namespace {

constexpr struct {
  speed_t constant;
  int baud;
} kRates[] = {{B1200, 1200},     {B2400, 2400},     {B4800, 4800},    {B9600, 9600},
              {B19200, 19200},   {B38400, 38400},   {B57600, 57600},  {B115200, 115200},
              {B230400, 230400}, {B460800, 460800}, {B921600, 921600}};

int check(int result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

int openMaster() {
  return check(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC), "no pseudo-terminal");
}

std::string slavePath(int master) {
  check(grantpt(master), "grantpt");
  check(unlockpt(master), "unlockpt");
  char name[128];
  const int error = ptsname_r(master, name, sizeof name);
  if (error != 0) throw std::system_error(error, std::generic_category(), "ptsname");
  return name;
}

}  // namespace

Pty::Pty()
    : master_(openMaster()),
      path_(slavePath(fd())),
      slave_(check(open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), path_.c_str())),
      closings_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  inotify_add_watch(closings_.number(), path_.c_str(), IN_CLOSE);
  termios settings{};
  check(tcgetattr(slave_.number(), &settings), path_.c_str());
  cfmakeraw(&settings);
  cfsetspeed(&settings, B9600);
  check(tcsetattr(slave_.number(), TCSANOW, &settings), path_.c_str());
}

int Pty::hostBaud() const {
  termios settings{};
  if (tcgetattr(fd(), &settings) != 0) return 0;
  for (const auto& rate : kRates) {
    if (cfgetospeed(&settings) == rate.constant) return rate.baud;
  }
  return 0;
}

std::string Pty::read() {
  char buffer[4096];
  const ssize_t length = ::read(fd(), buffer, sizeof buffer);
  return {buffer, static_cast<std::size_t>(length > 0 ? length : 0)};
}

std::size_t Pty::write(const std::string& bytes) {
  const ssize_t length = ::write(fd(), bytes.data(), bytes.size());
  return static_cast<std::size_t>(length > 0 ? length : 0);
}

void Pty::forgetClosings() {
  char events[4096];
  while (::read(closings_.number(), events, sizeof events) > 0) continue;
}

void Pty::endAbandonedUse() {
  int exclusive = 0;
  // The lock is tried only where the flag turns hosts away anyway: none finds it taken.
  if (ioctl(slave_.number(), TIOCGEXCL, &exclusive) != 0 || exclusive == 0) return;
  if (flock(slave_.number(), LOCK_EX | LOCK_NB) != 0) return;
  flock(slave_.number(), LOCK_UN);
  ioctl(slave_.number(), TIOCNXCL);
}

}  // namespace mvdirigo
