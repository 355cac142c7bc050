#include "line/driver.h"

#include <asm/ioctls.h>
#include <asm/termbits.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <ctime>

using mvdirigo::Driver;

extern "C" int close(int handle) {
  Driver* const driver = Driver::current;
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
  Driver* const driver = Driver::current;
  if (driver && driver->stuck && request == TCFLSH) return 0;
  const auto result = static_cast<int>(syscall(SYS_ioctl, handle, request, argument));
  if (!driver || result != 0) return result;
  auto& settings = *static_cast<termios2*>(argument);
  if (request == TCSETS2) driver->flags_asked = settings.c_cflag;
  if (request == TCGETS2 && driver->only_rate != 0) settings.c_ospeed = driver->only_rate;
  return result;
}
