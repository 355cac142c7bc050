#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/platform.h"
#include "platform/runtime_error.h"
#include "simulator/model/simulated_line.h"
#include "simulator/virtual/event_queue.h"

namespace mvdirigo {

class VirtualSerialPort;

/// One numbered port of the virtual machine: what is plugged in, and who holds it open.
class VirtualSocket {
 public:
  VirtualSocket(EventQueue& queue, int comm_port) : queue_(queue), comm_port_(comm_port) {}
  ~VirtualSocket() { unplug(); }
  VirtualSocket(const VirtualSocket&) = delete;
  VirtualSocket& operator=(const VirtualSocket&) = delete;

  void plug(SimulatedLine& line);
  /// The device vanishes under a port that is open.
  void unplug();

  /// Why opening is refused; `kPortAlreadyOpen` stands for another program that holds the port.
  std::optional<Fault> refusal;
  PortDetails details;
  /// The device vanishes under the write of these bytes.
  std::optional<std::string> vanishes_at_write;
  /// Every byte that left the host through this port, since the machine was started.
  std::string sent;

  /// Bytes that reach the host at once, whatever the line's rate.
  void deliver(const std::string& bytes);

  /// Whether a port control holds it open.
  [[nodiscard]] bool held() const { return holder_ != nullptr; }
  /// For the port control that opens this socket: throws when that is not possible now.
  void take(VirtualSerialPort& holder);
  void release(const VirtualSerialPort& holder);
  /// One byte that has just left the host.
  void transmit(char byte, int baud);

 private:
  /// Brings the line up to now, hands over what the host heard, and looks when to come back.
  void attend();

  EventQueue& queue_;
  int comm_port_;
  SimulatedLine* line_ = nullptr;
  VirtualSerialPort* holder_ = nullptr;
  std::optional<EventQueue::Handle> next_visit_;
};

/// A serial port control in virtual time. Bytes leave one after the other at the rate that is set.
class VirtualSerialPort : public SerialPort {
 public:
  using FindSocket = std::function<VirtualSocket&(int comm_port)>;

  VirtualSerialPort(EventQueue& queue, FindSocket find_socket, LineTraffic& line_traffic,
                    std::function<void()> on_comm)
      : queue_(queue),
        find_socket_(std::move(find_socket)),
        line_traffic_(line_traffic),
        on_comm_(std::move(on_comm)) {}
  ~VirtualSerialPort() override { close(); }
  VirtualSerialPort(const VirtualSerialPort&) = delete;
  VirtualSerialPort& operator=(const VirtualSerialPort&) = delete;

  int CommPort() const override { return comm_port_; }
  void setCommPort(int port) override;
  std::string Settings() const override { return settings_; }
  void setSettings(const std::string& settings) override;
  bool PortOpen() const override { return socket_ != nullptr; }
  void setPortOpen(bool open) override;
  void reopen() override;
  int RThreshold() const override { return receive_threshold_; }
  void setRThreshold(int characters) override;
  int InputLen() const override { return input_len_; }
  void setInputLen(int characters) override;
  std::string Input() override;
  void Output(const std::string& bytes) override;
  int InBufferCount() const override { return static_cast<int>(received_.size()); }
  int OutBufferCount() const override { return static_cast<int>(unsent_.size()); }

  [[nodiscard]] int baud() const { return baud_; }
  /// From the socket: characters came in; the device is gone.
  void take(const std::string& bytes);
  void vanish();

 private:
  void close();
  void tellTransfer(LineTransfer::Direction direction, std::string_view bytes);
  void sendNext();
  void byteSent();
  void postOnComm(std::function<bool()> still_due);

  EventQueue& queue_;
  FindSocket find_socket_;
  LineTraffic& line_traffic_;
  std::function<void()> on_comm_;

  int comm_port_ = 1;
  std::string settings_ = "9600,N,8,1";
  int baud_ = 9600;
  int receive_threshold_ = 0;
  int input_len_ = 0;

  VirtualSocket* socket_ = nullptr;
  bool device_gone_ = false;
  bool fault_unread_ = false;
  std::string received_;
  std::deque<char> unsent_;
  std::optional<EventQueue::Handle> byte_sent_;
  /// Replaced at every closing, so that an event of an earlier opening finds its own gone.
  std::shared_ptr<char> opening_;
};

}  // namespace mvdirigo
