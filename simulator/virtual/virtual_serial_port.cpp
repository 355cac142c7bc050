#include "simulator/virtual/virtual_serial_port.h"

#include <utility>

#include "platform/line_settings.h"

namespace mvdirigo {

void VirtualSocket::plug(SimulatedLine& line) {
  unplug();
  line_ = &line;
  attend();
}

void VirtualSocket::unplug() {
  line_ = nullptr;
  if (next_visit_) queue_.cancel(*next_visit_);
  next_visit_.reset();
  if (auto* holder = std::exchange(holder_, nullptr)) holder->vanish();
}

void VirtualSocket::deliver(const std::string& bytes) {
  if (holder_) holder_->take(bytes);
}

void VirtualSocket::take(VirtualSerialPort& holder) {
  if (holder_) throw RuntimeError(Fault::kPortAlreadyOpen);
  if (!line_) throw RuntimeError(Fault::kInvalidPortNumber);
  if (refusal) throw RuntimeError(*refusal);
  holder_ = &holder;
}

void VirtualSocket::release(const VirtualSerialPort& holder) {
  if (holder_ == &holder) holder_ = nullptr;
}

void VirtualSocket::transmit(char byte, int baud) {
  sent += byte;
  if (!line_) return;
  line_->receive(byte, baud, queue_.now());
  attend();
}

void VirtualSocket::attend() {
  deliver(line_->advance(queue_.now(), holder_ ? holder_->baud() : 0));
  if (line_->vanished()) return unplug();
  const auto next = line_->nextEvent();
  if (next_visit_ && next == next_visit_->first) return;
  if (next_visit_) queue_.cancel(*next_visit_);
  next_visit_.reset();
  if (!next) return;
  next_visit_ = queue_.post(*next, {"line acts on COM", comm_port_}, [this] {
    next_visit_.reset();
    attend();
  });
}

void VirtualSerialPort::setCommPort(int port) {
  if (PortOpen()) throw RuntimeError(Fault::kNotValidWhilePortOpen);
  if (!isPort(port)) throw RuntimeError(Fault::kInvalidPortNumber);
  comm_port_ = port;
}

void VirtualSerialPort::setSettings(const std::string& settings) {
  baud_ = parseLineSettings(settings).baud;
  settings_ = settings;
}

void VirtualSerialPort::setPortOpen(bool open) {
  if (!open) {
    if (!PortOpen()) throw RuntimeError(Fault::kDeviceNotOpen);
    return close();
  }
  if (PortOpen()) throw RuntimeError(Fault::kPortAlreadyOpen);
  VirtualSocket& socket = find_socket_(comm_port_);
  socket.take(*this);
  socket_ = &socket;
  device_gone_ = fault_unread_ = false;
  opening_ = std::make_shared<char>();
}

void VirtualSerialPort::reopen() {
  setPortOpen(false);
  setPortOpen(true);
}

void VirtualSerialPort::close() {
  if (socket_) socket_->release(*this);
  socket_ = nullptr;
  opening_.reset();
  received_.clear();
  unsent_.clear();
  if (byte_sent_) queue_.cancel(*byte_sent_);
  byte_sent_.reset();
}

void VirtualSerialPort::setRThreshold(int characters) {
  if (characters < 0) throw RuntimeError(Fault::kInvalidPropertyValue);
  receive_threshold_ = characters;
}

void VirtualSerialPort::setInputLen(int characters) {
  if (characters < 0) throw RuntimeError(Fault::kInvalidPropertyValue);
  input_len_ = characters;
}

std::string VirtualSerialPort::Input() {
  if (std::exchange(fault_unread_, false)) throw RuntimeError(Fault::kDeviceIo);
  if (!PortOpen()) throw RuntimeError(Fault::kPortMustBeOpen);
  const auto length = input_len_ == 0 ? received_.size() : static_cast<std::size_t>(input_len_);
  std::string taken = received_.substr(0, length);
  received_.erase(0, taken.size());
  return taken;
}

void VirtualSerialPort::Output(const std::string& bytes) {
  if (!PortOpen()) throw RuntimeError(Fault::kPortMustBeOpen);
  if (socket_->vanishes_at_write == bytes) socket_->unplug();
  if (device_gone_) throw RuntimeError(Fault::kDeviceIo);
  tellTransfer(LineTransfer::Direction::kOut, bytes);
  unsent_.insert(unsent_.end(), bytes.begin(), bytes.end());
  if (!byte_sent_) sendNext();
}

void VirtualSerialPort::tellTransfer(LineTransfer::Direction direction, std::string_view bytes) {
  using std::chrono::milliseconds;
  const auto time_of_day =
      std::chrono::duration_cast<milliseconds>(queue_.now()) % std::chrono::hours(24);
  line_traffic_.tell({time_of_day, comm_port_, direction}, bytes);
}

void VirtualSerialPort::sendNext() {
  if (unsent_.empty()) return;
  byte_sent_ = queue_.post(queue_.now() + byteTime(baud_), {"byte leaves COM", comm_port_},
                           [this] { byteSent(); });
}

void VirtualSerialPort::byteSent() {
  byte_sent_.reset();
  const char byte = unsent_.front();
  unsent_.pop_front();
  sendNext();
  socket_->transmit(byte, baud_);
}

void VirtualSerialPort::take(const std::string& bytes) {
  if (bytes.empty()) return;
  tellTransfer(LineTransfer::Direction::kIn, bytes);
  for (const char byte : bytes) {
    received_ += byte;
    postOnComm([this] { return InBufferCount() >= receive_threshold_; });
  }
}

void VirtualSerialPort::vanish() {
  device_gone_ = true;
  unsent_.clear();
  if (byte_sent_) queue_.cancel(*byte_sent_);
  byte_sent_.reset();
  postOnComm([this] {
    close();
    fault_unread_ = true;
    return true;
  });
}

void VirtualSerialPort::postOnComm(std::function<bool()> still_due) {
  queue_.post(queue_.now(), {"OnComm COM", comm_port_},
              [this, still_due = std::move(still_due), opening = std::weak_ptr<char>(opening_)] {
                if (opening.expired() || !still_due() || receive_threshold_ == 0) return;
                const auto on_comm = on_comm_;
                on_comm();
              });
}

}  // namespace mvdirigo
