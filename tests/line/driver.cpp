#include "line/driver.h"

#include <asm/ioctls.h>
#include <asm/termbits.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <ctime>

namespace mvdirigo {
namespace {

Driver* driver = nullptr;

}  // namespace

Driver::Driver() { driver = this; }
Driver::~Driver() { driver = nullptr; }

}  // namespace mvdirigo

using mvdirigo::driver;

extern "C" int close(int handle) {
  if (driver && driver->stuck && isatty(handle)) {
    const timespec half_a_minute{30, 0};
    if (nanosleep(&half_a_minute, nullptr) != 0 && errno == EINTR) ++driver->interrupted_closings;
  }
  return static_cast<int>(syscall(SYS_close, handle));
}

extern "C" int ioctl(int handle, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (driver && driver->stuck && request == TCFLSH) return 0;
  const auto result = static_cast<int>(syscall(SYS_ioctl, handle, request, argument));
  if (driver && result == 0) {
    auto& settings = *static_cast<termios2*>(argument);
    if (request == TCSETS2) driver->flags_asked.push_back(settings.c_cflag);
    if (request == TCGETS2 && driver->only_rate != 0) {
      settings.c_ospeed = static_cast<speed_t>(driver->only_rate);
    }
  }
  return result;
}
