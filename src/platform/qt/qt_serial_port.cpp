#include "platform/qt/qt_serial_port.h"

#include <fcntl.h>
#include <linux/serial.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include <QAbstractEventDispatcher>
#include <QLoggingCategory>
#include <QSignalBlocker>
#include <QTime>

#include "platform/runtime_error.h"
#include "platform/text.h"

namespace mvdirigo {
namespace {

using namespace std::chrono_literals;

Q_LOGGING_CATEGORY(lineLog, "mvdirigo.line", QtWarningMsg)

/// Received characters kept here before the line is left to wait in the system's own buffer.
constexpr std::size_t kReceiveCapacity = 64 * 1024;
constexpr qint64 kReadSize = 4096;

/// How long one turn of the event loop may deliver, so that the windows stay responsive.
constexpr auto kLongestDelivery = 4ms;

/// How long closing may wait for the line to take what is still queued.
constexpr auto kLongestClosing = 200ms;

void log(int comm_port, char direction, std::string_view bytes) {
  qCInfo(lineLog).noquote().nospace()
      << QTime::currentTime().toString("HH:mm:ss.zzz") << " COM" << comm_port << ' ' << direction
      << ' ' << QString::fromStdString(visibleControls(bytes));
}

/// Bytes that wait in the system's queue of the line.
int queuedInSystem(int handle) {
  int queued = 0;
  return ioctl(handle, TIOCOUTQ, &queued) == 0 ? queued : 0;
}

/// Writes what the line takes now, and returns how much that was. Qt's port would do the same by
/// way of its buffer and the event loop.
std::size_t writeAtOnce(int handle, std::string_view bytes) {
  const ssize_t written = write(handle, bytes.data(), bytes.size());
  return written > 0 ? static_cast<std::size_t>(written) : 0;
}

bool hungUp(int handle) {
  pollfd state{handle, 0, 0};
  return poll(&state, 1, 0) != 0;
}

bool apply(const LineSettings& line, QSerialPort& port) {
  // A failure is the caller's to report, and no sign of a device that vanished.
  const QSignalBlocker quiet(port);
  const auto parity = line.parity == 'E'   ? QSerialPort::EvenParity
                      : line.parity == 'O' ? QSerialPort::OddParity
                                           : QSerialPort::NoParity;
  const auto stop_bits = line.stop_bits == 2 ? QSerialPort::TwoStop : QSerialPort::OneStop;
  return port.setBaudRate(line.baud) && port.setParity(parity) &&
         port.setDataBits(static_cast<QSerialPort::DataBits>(line.data_bits)) &&
         port.setStopBits(stop_bits);
}

/// Closes Qt's port, but keeps the line's settings. Qt's port would put back what it found at its
/// opening, at once, and so garble the last bytes, which the hardware may still be sending.
void closeKeepingSettings(QSerialPort& port) {
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(nowhere, port.handle());
  ::close(nowhere);
  port.close();
}

/// Asks an adapter to hand on what it receives at once. Common ones otherwise hold a short reply
/// back for 16 ms, which is longer than the reply itself. Devices that can't are left as they are.
void preferLowLatency(int handle) {
  serial_struct serial{};
  if (ioctl(handle, TIOCGSERIAL, &serial) != 0 || serial.flags & ASYNC_LOW_LATENCY) return;
  serial.flags |= ASYNC_LOW_LATENCY;
  ioctl(handle, TIOCSSERIAL, &serial);
}

Fault openingFault(QSerialPort::SerialPortError error) {
  switch (error) {
    case QSerialPort::DeviceNotFoundError:
      return Fault::kInvalidPortNumber;
    case QSerialPort::PermissionError:
      // The device itself was opened before, so what refuses is Qt's lock.
      return Fault::kPortAlreadyOpen;
    default:
      return Fault::kDeviceIo;
  }
}

}  // namespace

QtSerialPort::QtSerialPort(PortDevices& devices, QtEventLoop& event_loop,
                           std::function<void()> on_comm)
    : devices_(devices),
      event_loop_(event_loop),
      on_comm_(std::make_shared<const std::function<void()>>(std::move(on_comm))) {
  event_loop_.add(*this);
}

QtSerialPort::~QtSerialPort() {
  event_loop_.remove(*this);
  close();
}

void QtSerialPort::setCommPort(int port) {
  if (PortOpen()) throw RuntimeError(Fault::kNotValidWhilePortOpen);
  if (port < kLowestPort || port > kHighestPort) throw RuntimeError(Fault::kInvalidPortNumber);
  comm_port_ = port;
  device_name_ = PortDevices::nameOf(port);
}

void QtSerialPort::setSettings(const std::string& settings) {
  const LineSettings line = parseLineSettings(settings);
  if (port_ && !apply(line, *port_)) throw RuntimeError(Fault::kInvalidPropertyValue);
  settings_ = settings;
  line_ = line;
}

void QtSerialPort::setPortOpen(bool open) {
  if (open == PortOpen()) {
    throw RuntimeError(open ? Fault::kPortAlreadyOpen : Fault::kDeviceNotOpen);
  }
  open ? this->open() : close();
}

void QtSerialPort::reopen() {
  setPortOpen(false);
  setPortOpen(true);
}

void QtSerialPort::open() {
  TakenDevice device = devices_.take(comm_port_, device_name_);
  preferLowLatency(device.handle());

  auto port = std::make_unique<QSerialPort>(QString::fromStdString(device.path().string()));
  port->setReadBufferSize(kReadSize);
  apply(line_, *port);
  if (!port->open(QIODevice::ReadWrite)) {
    ioctl(device.handle(), TIOCNXCL);
    throw RuntimeError(openingFault(port->error()));
  }
  // What came in before is no answer to anything asked on this opening.
  tcflush(device.handle(), TCIFLUSH);

  QObject::connect(port.get(), &QSerialPort::readyRead, [this] { takeWhatFits(); });
  QObject::connect(port.get(), &QSerialPort::errorOccurred,
                   [this](QSerialPort::SerialPortError error) { onError(error); });
  device_.emplace(std::move(device));
  port_ = std::move(port);
  opening_ = std::make_shared<const char>();
  sent_by_ = Clock::now();
  vanishing_ = fault_unread_ = false;
  state_ = State::kOpen;
}

void QtSerialPort::close() {
  state_ = State::kClosed;
  if (port_) {
    port_->flush();
    discardStuckOutput();
    releaseDevice();
  }
  opening_.reset();
  received_.clear();
  unannounced_ = 0;
}

void QtSerialPort::releaseDevice() {
  port_->disconnect();
  closeKeepingSettings(*port_);
  port_.reset();
  ioctl(device_->handle(), TIOCNXCL);
  device_.reset();
}

/// The system waits at closing, for up to half a minute, until the line has taken what is queued.
void QtSerialPort::discardStuckOutput() {
  if (queuedInSystem(device_->handle()) == 0) return;
  const auto still_needed = sent_by_ - Clock::now();
  const bool stuck = still_needed < -kLongestClosing || still_needed > kLongestClosing;
  if (stuck) tcflush(device_->handle(), TCOFLUSH);
}

void QtSerialPort::setRThreshold(int characters) {
  if (characters < 0) throw RuntimeError(Fault::kInvalidPropertyValue);
  receive_threshold_ = characters;
}

void QtSerialPort::setInputLen(int characters) {
  if (characters < 0) throw RuntimeError(Fault::kInvalidPropertyValue);
  input_len_ = characters;
}

std::string QtSerialPort::Input() {
  if (std::exchange(fault_unread_, false)) throw RuntimeError(Fault::kDeviceIo);
  if (!PortOpen()) throw RuntimeError(Fault::kPortMustBeOpen);
  const std::size_t limit =
      input_len_ == 0 ? received_.size() : static_cast<std::size_t>(input_len_);
  const auto end =
      received_.begin() + static_cast<std::ptrdiff_t>(std::min(limit, received_.size()));
  std::string taken(received_.begin(), end);
  received_.erase(received_.begin(), end);
  // There is room again for what Qt's port kept back.
  if (port_ && port_->bytesAvailable() > 0) takeWhatFits();
  return taken;
}

void QtSerialPort::Output(const std::string& bytes) {
  if (!PortOpen()) throw RuntimeError(Fault::kPortMustBeOpen);
  if (vanishing_) throw RuntimeError(Fault::kDeviceIo);
  log(comm_port_, '>', bytes);
  std::string_view rest = bytes;
  if (port_->bytesToWrite() == 0) rest.remove_prefix(writeAtOnce(device_->handle(), rest));
  if (!rest.empty()) {
    port_->write(rest.data(), static_cast<qint64>(rest.size()));
    port_->flush();
  }
  if (vanishing_) throw RuntimeError(Fault::kDeviceIo);
  constexpr int kBitsPerCharacter = 11;
  const auto bits = static_cast<std::int64_t>(bytes.size()) * kBitsPerCharacter;
  sent_by_ = std::max(sent_by_, Clock::now()) + std::chrono::microseconds(1s) * bits / line_.baud;
}

int QtSerialPort::OutBufferCount() const {
  if (!port_) return 0;
  return static_cast<int>(port_->bytesToWrite()) + queuedInSystem(device_->handle());
}

void QtSerialPort::onError(QSerialPort::SerialPortError error) {
  switch (error) {
    case QSerialPort::NoError:
    case QSerialPort::TimeoutError:
    case QSerialPort::UnsupportedOperationError:
      return;
    case QSerialPort::ResourceError:
      // A full line reports the same.
      if (!hungUp(device_->handle())) return;
      break;
    default:
      break;
  }
  // Qt's port repeats the error without end, so it is closed, but never inside its own signal.
  vanishing_ = true;
}

void QtSerialPort::onVanished() {
  takeReceived();
  releaseDevice();
  state_ = State::kVanished;
}

void QtSerialPort::takeWhatFits() {
  if (received_.size() < kReceiveCapacity) takeReceived();
}

void QtSerialPort::takeReceived() {
  std::array<char, kReadSize> buffer;
  const qint64 count = port_->read(buffer.data(), kReadSize);
  if (count <= 0) return;
  const std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
  log(comm_port_, '<', bytes);
  received_.insert(received_.end(), bytes.begin(), bytes.end());
  unannounced_ += bytes.size();
}

void QtSerialPort::betweenTurns() {
  if (vanishing_ && port_) onVanished();
  if (unannounced_ > 0 || state_ == State::kVanished) deliver();
}

void QtSerialPort::deliver() {
  const auto on_comm = on_comm_;
  const auto opening = std::weak_ptr(opening_);
  const auto end = Clock::now() + kLongestDelivery;
  while (unannounced_ > 0) {
    --unannounced_;
    const auto threshold = static_cast<std::size_t>(receive_threshold_);
    if (threshold == 0 || received_.size() < threshold) continue;
    (*on_comm)();
    if (opening.expired()) return;
    if (Clock::now() >= end) {
      // The rest comes after the events that wait meanwhile, without a sleep.
      QAbstractEventDispatcher::instance()->wakeUp();
      return;
    }
  }
  if (state_ != State::kVanished) return;
  close();
  fault_unread_ = true;
  if (receive_threshold_ > 0) (*on_comm)();
}

}  // namespace mvdirigo
