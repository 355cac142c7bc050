#include "platform/qt/qt_serial_port.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <thread>
#include <utility>

#include <QAbstractEventDispatcher>
#include <QLoggingCategory>

#include "platform/runtime_error.h"
#include "platform/text.h"

namespace mvdirigo {
namespace {

using namespace std::chrono_literals;

Q_LOGGING_CATEGORY(lineLog, "mvdirigo.line", QtWarningMsg)

/// Received characters kept here before the line is left to wait in the system's own buffer.
constexpr std::size_t kReceiveCapacity = 65'536;
constexpr std::size_t kReadSize = 4096;

/// How long one turn of the event loop may deliver, so that the windows stay responsive.
constexpr auto kLongestDelivery = 4ms;

/// How long closing may wait for the line to take what is still queued.
constexpr auto kLongestClosing = 200ms;
constexpr auto kSendingPoll = 1ms;

/// Since local midnight. The toolkit's would look at the time zone's file for every transfer.
std::chrono::milliseconds timeOfDay() {
  using std::chrono::floor, std::chrono::seconds;
  const auto now = floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
  const std::time_t whole_seconds = std::chrono::system_clock::to_time_t(floor<seconds>(now));
  std::tm local{};
  localtime_r(&whole_seconds, &local);
  return std::chrono::hours(local.tm_hour) + std::chrono::minutes(local.tm_min) +
         seconds(local.tm_sec) + (now - floor<seconds>(now));
}

}  // namespace

QtSerialPort::QtSerialPort(PortDevices& devices, QtEventLoop& event_loop, LineTraffic& line_traffic,
                           std::function<void()> on_comm)
    : devices_(devices),
      event_loop_(event_loop),
      line_traffic_(line_traffic),
      on_comm_(std::make_shared<const std::function<void()>>(std::move(on_comm))) {
  event_loop_.add(*this);
}

QtSerialPort::~QtSerialPort() {
  event_loop_.remove(*this);
  close();
}

void QtSerialPort::setCommPort(int port) {
  if (PortOpen()) throw RuntimeError(Fault::kNotValidWhilePortOpen);
  if (!isPort(port)) throw RuntimeError(Fault::kInvalidPortNumber);
  comm_port_ = port;
}

void QtSerialPort::setSettings(const std::string& settings) {
  const LineSettings line = parseLineSettings(settings);
  if (device_ && !skipOnError([&] { device_->apply(line); })) {
    skipOnError([&] { device_->apply(line_); });
    throw RuntimeError(Fault::kInvalidPropertyValue);
  }
  settings_ = settings;
  line_ = line;
}

void QtSerialPort::setPortOpen(bool open) {
  if (open == PortOpen()) {
    throw RuntimeError(open ? Fault::kPortAlreadyOpen : Fault::kDeviceNotOpen);
  }
  if (open) {
    this->open();
  } else {
    close();
  }
}

void QtSerialPort::reopen() {
  if (!PortOpen()) throw RuntimeError(Fault::kDeviceNotOpen);
  std::optional<HeldLock> lock;
  if (device_) {
    finishSending();
    lock.emplace(releaseDevice());
  }
  close();
  open(std::move(lock));
}

void QtSerialPort::open(std::optional<HeldLock> lock) {
  device_ = devices_.take(comm_port_, line_, std::move(lock));
  // What came in before is no answer to anything asked on this opening.
  device_->discardInput();
  readable_.emplace(device_->handle(), QSocketNotifier::Read);
  writable_.emplace(device_->handle(), QSocketNotifier::Write);
  writable_->setEnabled(false);
  QObject::connect(&*readable_, &QSocketNotifier::activated, [this] { takeReceived(); });
  QObject::connect(&*writable_, &QSocketNotifier::activated, [this] { sendRest(); });
  opening_ = std::make_shared<const char>();
  sent_by_ = Clock::now();
  vanishing_ = fault_unread_ = false;
  state_ = State::kOpen;
}

void QtSerialPort::close() {
  state_ = State::kClosed;
  if (device_) {
    finishSending();
    releaseDevice();
  }
  opening_.reset();
  received_.clear();
  unannounced_ = 0;
}

HeldLock QtSerialPort::releaseDevice() {
  readable_.reset();
  writable_.reset();
  unsent_.clear();
  return std::move(*std::exchange(device_, nullptr)).closeButKeepLock();
}

// An adapter still has bytes when the system's queue is empty, and loses them when its rate changes
// or its buffers are purged at the next opening. So the line gets the time that its rate asks for.
void QtSerialPort::finishSending() {
  const auto start = Clock::now();
  const auto deadline = start + kLongestClosing;
  const bool stuck = OutBufferCount() > 0 && start > sent_by_ + kLongestClosing;
  while (!stuck && !vanishing_ && Clock::now() < deadline) {
    sendRest();
    if (OutBufferCount() == 0 && Clock::now() >= sent_by_) return;
    std::this_thread::sleep_for(kSendingPoll);
  }
  device_->discardOutput();
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
  if (received_.empty() && device_ && !vanishing_) takeReceived();
  const std::size_t limit =
      input_len_ == 0 ? received_.size() : static_cast<std::size_t>(input_len_);
  const auto end =
      received_.begin() + static_cast<std::ptrdiff_t>(std::min(limit, received_.size()));
  std::string taken(received_.begin(), end);
  received_.erase(received_.begin(), end);
  if (readable_ && !vanishing_) readable_->setEnabled(received_.size() < kReceiveCapacity);
  return taken;
}

void QtSerialPort::Output(const std::string& bytes) {
  if (!PortOpen()) throw RuntimeError(Fault::kPortMustBeOpen);
  if (vanishing_) throw RuntimeError(Fault::kDeviceIo);
  tellTransfer(LineTransfer::Direction::kOut, bytes);
  unsent_ += bytes;
  sendRest();
  if (vanishing_) throw RuntimeError(Fault::kDeviceIo);
  constexpr int kBitsPerCharacter = 11;
  const auto bits = static_cast<std::int64_t>(bytes.size()) * kBitsPerCharacter;
  sent_by_ = std::max(sent_by_, Clock::now()) + std::chrono::microseconds(1s) * bits / line_.baud;
}

int QtSerialPort::InBufferCount() const {
  return static_cast<int>(received_.size()) + (device_ ? device_->received() : 0);
}

int QtSerialPort::OutBufferCount() const {
  return device_ ? static_cast<int>(unsent_.size()) + device_->queued() : 0;
}

void QtSerialPort::tellTransfer(LineTransfer::Direction direction, std::string_view bytes) {
  const bool logged = lineLog().isInfoEnabled();
  if (!logged && !line_traffic_.watched()) return;
  const LineTransfer transfer{timeOfDay(), comm_port_, direction};
  if (logged) {
    qCInfo(lineLog).noquote() << QString::fromStdString(transfer.head() + visibleControls(bytes));
  }
  line_traffic_.tell(transfer, bytes);
}

void QtSerialPort::sendRest() {
  const auto [count, state] = device_->write(unsent_);
  unsent_.erase(0, count);
  writable_->setEnabled(!unsent_.empty());
  if (state == SerialDevice::State::kGone) startVanishing();
}

void QtSerialPort::takeReceived() {
  std::array<char, kReadSize> buffer;
  const auto [count, state] = device_->read(buffer);
  if (state == SerialDevice::State::kGone) return startVanishing();
  if (count == 0) return;
  const std::string_view bytes(buffer.data(), count);
  tellTransfer(LineTransfer::Direction::kIn, bytes);
  received_.insert(received_.end(), bytes.begin(), bytes.end());
  unannounced_ += count;
  readable_->setEnabled(received_.size() < kReceiveCapacity);
}

void QtSerialPort::startVanishing() {
  vanishing_ = true;
  readable_->setEnabled(false);
  writable_->setEnabled(false);
}

void QtSerialPort::onVanished() {
  releaseDevice();
  state_ = State::kVanished;
}

void QtSerialPort::betweenTurns() {
  if (vanishing_ && device_) onVanished();
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
