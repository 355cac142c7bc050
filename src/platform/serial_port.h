#pragma once

#include <string>

namespace mvdirigo {

/// One serial port control: which port it stands for, how the line is set, and whether it is open.
/// The `OnComm` callback is given when the control is made (`Platform::makeSerialPort`).
///
/// `OnComm` comes once per received character, only from the event loop, never inside a call of the
/// port; while a handler waits, the next characters are delivered inside its wait. When the device
/// vanishes, the characters already received are delivered first; then one last `OnComm` comes
/// whose `Input` throws `kDeviceIo`, and the port is closed.
///
/// Texts on the line are bytes, one a character (Latin-1).
class SerialPort {
 public:
  static constexpr int kLowestPort = 1;
  static constexpr int kHighestPort = 16;
  [[nodiscard]] static constexpr bool isPort(int number) {
    return number >= kLowestPort && number <= kHighestPort;
  }

  virtual ~SerialPort() = default;

  /// The port number, 1 to 16. Setting throws `kNotValidWhilePortOpen` while open and
  /// `kInvalidPortNumber` outside 1 to 16.
  [[nodiscard]] virtual int CommPort() const = 0;
  virtual void setCommPort(int port) = 0;

  /// "9600" or "9600,N,8,1": rate in bit/s, parity N, E or O, 5 to 8 data bits, 1 or 2 stop bits.
  /// Setting throws `kInvalidPropertyValue` for anything else; while open it applies at once.
  [[nodiscard]] virtual std::string Settings() const = 0;
  virtual void setSettings(const std::string& settings) = 0;

  /// Opening throws `kPortAlreadyOpen` when this control or another program holds the port,
  /// `kInvalidPortNumber` when there is no such device, `kPermissionDenied`, or `kDeviceIo`.
  /// Closing throws `kDeviceNotOpen` when closed. Closing discards what was received and not read.
  [[nodiscard]] virtual bool PortOpen() const = 0;
  virtual void setPortOpen(bool open) = 0;
  void closeIfOpen() {
    if (PortOpen()) setPortOpen(false);
  }

  /// Closes the open port and opens it again as it was, without letting a program that honours lock
  /// files take it in between. Throws as closing and opening do; a port that can't be opened again
  /// stays closed.
  virtual void reopen() = 0;

  /// Characters received before an `OnComm`: 0 for no events, 1 for one a character.
  [[nodiscard]] virtual int RThreshold() const = 0;
  virtual void setRThreshold(int characters) = 0;

  /// Characters that one read of `Input` returns at the most; 0 for all that were received.
  [[nodiscard]] virtual int InputLen() const = 0;
  virtual void setInputLen(int characters) = 0;

  /// Takes received characters, up to `InputLen`; empty when none wait.
  /// Throws `kPortMustBeOpen` when closed, `kDeviceIo` once after the device vanished.
  virtual std::string Input() = 0;

  /// Hands `bytes` to the line without waiting. Throws `kPortMustBeOpen` when closed, `kDeviceIo`
  /// when the device is gone.
  virtual void Output(const std::string& bytes) = 0;

  /// Received characters not yet read.
  [[nodiscard]] virtual int InBufferCount() const = 0;
  /// Bytes not yet on the line: those in the program and those in the system's queue.
  [[nodiscard]] virtual int OutBufferCount() const = 0;
};

}  // namespace mvdirigo
