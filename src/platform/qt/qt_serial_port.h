#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <QSocketNotifier>

#include "platform/line_settings.h"
#include "platform/line_traffic.h"
#include "platform/qt/port_devices.h"
#include "platform/qt/qt_event_loop.h"
#include "platform/serial_port.h"

namespace mvdirigo {

/// A port control on a device of this computer and Qt's event loop. Received bytes are taken when
/// the device has some, and announced between the turns of the event loop, so that a handler may
/// wait, close and reopen the port, or destroy this control. A wait has turns of its own, which
/// bring the rest.
///
/// The device is this program's own, and not the toolkit's serial port: that one knows none of the
/// locks but its own, which writes to the disk at every opening; it puts settings back at the
/// closing, while the last bytes may be on their way; it reports a hang-up without end; and it
/// neither looks which rate the driver took nor can end a close that the system holds up.
class QtSerialPort : public SerialPort, private QtEventLoop::Listener {
 public:
  /// `devices`, `event_loop` and `line_traffic` outlive the control.
  QtSerialPort(PortDevices& devices, QtEventLoop& event_loop, LineTraffic& line_traffic,
               std::function<void()> on_comm);
  ~QtSerialPort() override;

  int CommPort() const override { return comm_port_; }
  void setCommPort(int port) override;
  std::string Settings() const override { return settings_; }
  void setSettings(const std::string& settings) override;
  bool PortOpen() const override { return state_ != State::kClosed; }
  void setPortOpen(bool open) override;
  void reopen() override;
  int RThreshold() const override { return receive_threshold_; }
  void setRThreshold(int characters) override;
  int InputLen() const override { return input_len_; }
  void setInputLen(int characters) override;
  std::string Input() override;
  void Output(const std::string& bytes) override;
  int InBufferCount() const override;
  int OutBufferCount() const override;

 private:
  using Clock = std::chrono::steady_clock;

  /// `kVanished`: the device is gone, and what it sent before is still being delivered.
  enum class State { kClosed, kOpen, kVanished };

  void open(std::optional<HeldLock> lock = {});
  void close();
  /// Gives the line time for what was written, at most 200 ms, and drops what it did not take.
  void finishSending();
  /// Lets go of the device, but not of its lock; what was received stays.
  HeldLock releaseDevice();

  /// Tells the log `mvdirigo.line` and the line traffic's watcher; nothing where neither listens.
  void tellTransfer(LineTransfer::Direction direction, std::string_view bytes);
  void sendRest();
  void takeReceived();
  /// Called once the device is gone; the notifiers would tell it without end.
  void startVanishing();
  void onVanished();

  void betweenTurns() override;
  void deliver();

  PortDevices& devices_;
  QtEventLoop& event_loop_;
  LineTraffic& line_traffic_;
  /// Shared with the deliveries in progress, so that a handler may destroy this control.
  const std::shared_ptr<const std::function<void()>> on_comm_;

  int comm_port_ = 1;
  std::string settings_ = "9600,N,8,1";
  LineSettings line_;
  int receive_threshold_ = 0;
  int input_len_ = 0;

  State state_ = State::kClosed;
  /// Replaced at every opening, so that what an earlier one left behind can tell.
  std::shared_ptr<const char> opening_;
  std::unique_ptr<SerialDevice> device_;
  std::optional<QSocketNotifier> readable_;
  std::optional<QSocketNotifier> writable_;
  /// Written by the program, but not yet taken by the system.
  std::string unsent_;
  /// When a line that works has taken everything written so far.
  Clock::time_point sent_by_;

  std::deque<char> received_;
  /// Received characters whose `OnComm` is still to come.
  std::size_t unannounced_ = 0;
  bool vanishing_ = false;
  bool fault_unread_ = false;
};

}  // namespace mvdirigo
