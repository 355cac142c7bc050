#include "platform/qt/serial_device.h"

// The kernel's terminal settings hold the rate in bit/s, which the C library's lack. The headers of
// the two can't be included together.
#include <asm/ioctls.h>
#include <asm/termbits.h>
#include <fcntl.h>
#include <linux/major.h>
#include <linux/serial.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <string>
#include <utility>

namespace mvdirigo {
namespace {

namespace fs = std::filesystem;

constexpr long kLongestCloseNs = 200'000'000;

bool isSerial(const struct stat& node) {
  if (!S_ISCHR(node.st_mode)) return false;
  const unsigned driver = major(node.st_rdev), number = minor(node.st_rdev);
  constexpr unsigned kVirtualConsoles = 64;
  // The process's own terminal, the system console, and the maker of pseudo-terminals.
  if (driver == TTYAUX_MAJOR || (driver == TTY_MAJOR && number < kVirtualConsoles)) return false;
  const fs::path entry = "/sys/dev/char/" + std::to_string(driver) + ':' + std::to_string(number);
  std::error_code error;
  // Pseudo-terminals have no entry.
  if (!fs::exists(entry, error)) return true;
  return fs::read_symlink(entry / "subsystem", error).filename() == "tty";
}

/// The system's code of a rate, or the code for any other.
tcflag_t rateCode(int baud) {
  static constexpr struct {
    int baud;
    tcflag_t code;
  } kCodes[] = {{1200, B1200},     {2400, B2400},     {4800, B4800},    {9600, B9600},
                {19200, B19200},   {38400, B38400},   {57600, B57600},  {115200, B115200},
                {230400, B230400}, {460800, B460800}, {921600, B921600}};
  for (const auto& rate : kCodes) {
    if (rate.baud == baud) return rate.code;
  }
  return BOTHER;
}

tcflag_t controlFlags(const LineSettings& line) {
  static constexpr tcflag_t kDataBits[] = {CS5, CS6, CS7, CS8};
  tcflag_t flags = rateCode(line.baud) | kDataBits[static_cast<std::size_t>(line.data_bits - 5)];
  if (line.stop_bits == 2) flags |= CSTOPB;
  if (line.parity != 'N') flags |= PARENB;
  if (line.parity == 'O') flags |= PARODD;
  return flags;
}

/// Asks an adapter to hand on what it receives at once. Common ones otherwise hold a short reply
/// back for 16 ms, which is longer than the reply itself. Devices that can't are left as they are.
void preferLowLatency(int handle) {
  serial_struct serial{};
  if (ioctl(handle, TIOCGSERIAL, &serial) != 0) return;
  const auto flags = static_cast<unsigned>(serial.flags);
  if ((flags & ASYNC_LOW_LATENCY) != 0) return;
  serial.flags = static_cast<int>(flags | ASYNC_LOW_LATENCY);
  ioctl(handle, TIOCSSERIAL, &serial);
}

/// Keeps calls of the system from waiting longer than `kLongestCloseNs` in this scope, by a signal
/// to this thread that does nothing else. Closing an adapter that is stuck would otherwise take the
/// system's half a minute: it counts no byte that is inside the adapter, so nothing can be
/// discarded that it would not wait for.
class WaitLimit {
 public:
  WaitLimit() {
    struct sigaction nothing {};
    nothing.sa_handler = [](int) {};
    sigaction(SIGALRM, &nothing, &before_);
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarm, &blocked_before_);
    sigevent to_this_thread{};
    to_this_thread.sigev_notify = SIGEV_THREAD_ID;
    to_this_thread.sigev_signo = SIGALRM;
    to_this_thread._sigev_un._tid = gettid();
    armed_ = timer_create(CLOCK_MONOTONIC, &to_this_thread, &timer_) == 0;
    // Again and again, because the first signal could come before the wait has begun.
    const itimerspec limit{{0, kLongestCloseNs}, {0, kLongestCloseNs}};
    if (armed_) timer_settime(timer_, 0, &limit, nullptr);
  }
  ~WaitLimit() {
    if (armed_) timer_delete(timer_);
    pthread_sigmask(SIG_SETMASK, &blocked_before_, nullptr);
    sigaction(SIGALRM, &before_, nullptr);
  }
  WaitLimit(const WaitLimit&) = delete;
  WaitLimit& operator=(const WaitLimit&) = delete;

 private:
  struct sigaction before_ {};
  sigset_t blocked_before_{};
  timer_t timer_{};
  bool armed_ = false;
};

PortRefused notTaken(int error_number) {
  const Fault fault = openingFault(error_number);
  return {fault, fault == Fault::kPortAlreadyOpen ? inUseText(0) : std::string()};
}

SerialDevice::Transfer transferred(ssize_t result) {
  if (result > 0) return {static_cast<std::size_t>(result)};
  const bool may_come_later = result < 0 && (errno == EAGAIN || errno == EINTR);
  return {0, may_come_later ? SerialDevice::State::kPresent : SerialDevice::State::kGone};
}

}  // namespace

bool SerialDevice::isOne(const fs::path& device) {
  struct stat node {};
  return stat(device.c_str(), &node) == 0 && isSerial(node);
}

SerialDevice::SerialDevice(const fs::path& device, HeldLock lock)
    : path_(device),
      lock_(std::move(lock)),
      descriptor_(open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
  if (!descriptor_.isOpen()) throw notTaken(errno);
  takeForItself();
  preferLowLatency(handle());
}

void SerialDevice::takeForItself() {
  struct stat node {};
  if (fstat(handle(), &node) != 0 || !isSerial(node) || isatty(handle()) != 1) {
    throw PortRefused(Fault::kInvalidPortNumber, {});
  }
  int exclusive = 0;
  // The system itself turns only ordinary users away from a port in exclusive use.
  if (ioctl(handle(), TIOCGEXCL, &exclusive) == 0 && exclusive != 0) throw notTaken(EBUSY);
  if (flock(handle(), LOCK_EX | LOCK_NB) != 0) throw notTaken(errno);
  ioctl(handle(), TIOCEXCL);
}

SerialDevice::~SerialDevice() { close(); }

HeldLock SerialDevice::closeButKeepLock() && {
  close();
  return std::move(lock_);
}

void SerialDevice::close() {
  if (!descriptor_.isOpen()) return;
  // Others may have the device open as well, and the mark would outlast this opening.
  ioctl(handle(), TIOCNXCL);
  const WaitLimit limit;
  static_cast<void>(descriptor_.close());
}

void SerialDevice::apply(const LineSettings& line) {
  termios2 settings{};
  ioctl(handle(), TCGETS2, &settings);
  settings.c_iflag = settings.c_oflag = settings.c_lflag = 0;
  // Whether the modem lines drop at the closing is the owner's choice.
  settings.c_cflag = (settings.c_cflag & HUPCL) | CREAD | CLOCAL | controlFlags(line);
  settings.c_ispeed = settings.c_ospeed = static_cast<speed_t>(line.baud);
  // A read that returns nothing means that the device is gone.
  settings.c_cc[VMIN] = 1;
  termios2 taken{};
  if (ioctl(handle(), TCSETS2, &settings) != 0 || ioctl(handle(), TCGETS2, &taken) != 0) {
    throw PortRefused(Fault::kDeviceIo, "It does not work as a serial port.");
  }
  // Hardware that lacks a rate gets another from its driver, without an error. Adapters divide
  // their clock and so are some tenths of a percent off; a frame bears 5 %, shared by both ends.
  const auto off = std::abs(static_cast<long>(taken.c_ospeed) - line.baud);
  if (off * 100 > 3L * line.baud) {
    throw PortRefused(Fault::kInvalidPropertyValue,
                      "This port can't do " + std::to_string(line.baud) + " baud.");
  }
}

SerialDevice::Transfer SerialDevice::read(std::span<char> buffer) {
  return transferred(::read(handle(), buffer.data(), buffer.size()));
}

SerialDevice::Transfer SerialDevice::write(std::string_view bytes) {
  return bytes.empty() ? Transfer{} : transferred(::write(handle(), bytes.data(), bytes.size()));
}

int SerialDevice::count(unsigned long queue) const {
  int bytes = 0;
  return ioctl(handle(), queue, &bytes) == 0 ? bytes : 0;
}

void SerialDevice::discardInput() { ioctl(handle(), TCFLSH, TCIFLUSH); }
void SerialDevice::discardOutput() { ioctl(handle(), TCFLSH, TCOFLUSH); }

}  // namespace mvdirigo
