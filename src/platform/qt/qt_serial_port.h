#pragma once

#include <chrono>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include <QSerialPort>

#include "platform/line_settings.h"
#include "platform/qt/port_devices.h"
#include "platform/qt/qt_event_loop.h"
#include "platform/serial_port.h"

namespace mvdirigo {

/// A port control on Qt's serial port. Received bytes are taken from it inside its signals, and
/// announced between the turns of the event loop, so that a handler may wait, close and reopen the
/// port, or destroy this control. A wait has turns of its own, which bring the rest.
class QtSerialPort : public SerialPort, private QtEventLoop::Listener {
 public:
  /// `devices` and `event_loop` outlive the control.
  QtSerialPort(PortDevices& devices, QtEventLoop& event_loop, std::function<void()> on_comm);
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
  Mode InputMode() const override { return mode_; }
  void setInputMode(Mode mode) override { mode_ = mode; }
  std::string Input() override;
  void Output(const std::string& bytes) override;
  int InBufferCount() const override { return static_cast<int>(received_.size()); }
  int OutBufferCount() const override;

 private:
  using Clock = std::chrono::steady_clock;

  /// `kVanished`: the device is gone, and what it sent before is still being delivered.
  enum class State { kClosed, kOpen, kVanished };

  void open();
  void close();
  /// Lets go of the device; what was received stays.
  void releaseDevice();
  void discardStuckOutput();

  void onError(QSerialPort::SerialPortError error);
  void onVanished();

  void takeWhatFits();
  /// Takes all that Qt's port has, which is at most one read.
  void takeReceived();
  void betweenTurns() override;
  void deliver();

  PortDevices& devices_;
  QtEventLoop& event_loop_;
  /// Shared with the deliveries in progress, so that a handler may destroy this control.
  const std::shared_ptr<const std::function<void()>> on_comm_;

  /// Chosen with the port number and kept: a port whose link vanishes with its device is not
  /// opened again as another device of the same number.
  std::filesystem::path device_name_ = PortDevices::nameOf(kLowestPort);
  int comm_port_ = 1;
  std::string settings_ = "9600,N,8,1";
  LineSettings line_;
  int receive_threshold_ = 0;
  int input_len_ = 0;
  Mode mode_ = Mode::kText;

  State state_ = State::kClosed;
  /// Replaced at every opening, so that what an earlier one left behind can tell.
  std::shared_ptr<const char> opening_;
  std::optional<TakenDevice> device_;
  std::unique_ptr<QSerialPort> port_;
  /// When a line that works has taken everything written so far.
  Clock::time_point sent_by_;

  std::deque<char> received_;
  /// Received characters whose `OnComm` is still to come.
  std::size_t unannounced_ = 0;
  bool vanishing_ = false;
  bool fault_unread_ = false;
};

}  // namespace mvdirigo
