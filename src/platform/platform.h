#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/dialogs.h"
#include "platform/event_loop.h"
#include "platform/line_traffic.h"
#include "platform/serial_port.h"
#include "platform/settings_store.h"
#include "platform/timer.h"

namespace mvdirigo {

/// What is known about a port number without opening it. Texts are UTF-8 and may be empty.
struct PortDetails {
  /// The device's path, links resolved, for example "/dev/ttyUSB0".
  std::string device;
  /// What the system says of the hardware, for example a USB adapter's product name.
  std::string hardware;
  /// Why the port can't be opened now, and what would help; empty when nothing stands in the way.
  std::string obstacle;
};

/// The machine, as the console sees it. One object a program; it outlives all that it made.
class Platform {
 public:
  virtual ~Platform() = default;

  virtual EventLoop& eventLoop() = 0;
  virtual SettingsStore& settingsStore() = 0;
  virtual Dialogs& dialogs() = 0;

  /// A timer of interval 0, disabled.
  virtual std::unique_ptr<Timer> makeTimer(std::function<void()> on_tick) = 0;

  /// A closed port control: port 1, "9600,N,8,1", no events, reads of everything, text mode.
  virtual std::unique_ptr<SerialPort> makeSerialPort(std::function<void()> on_comm) = 0;

  /// What goes over the lines of all ports that were made here.
  virtual LineTraffic& lineTraffic() = 0;

  /// Of a port from 1 to 16. After an opening that was refused, `obstacle` tells why.
  virtual PortDetails portDetails(int comm_port) = 0;

  /// A port number that a link once served stays with links: while the link is missing there is no
  /// such device. This forgets it, so that the number may be another device again.
  virtual void forgetPortLinks() = 0;

  /// A uniform random number in [0, 1).
  virtual double random() = 0;

  /// The time of day as "HH:MM:SS", for people.
  virtual std::string timeOfDay() = 0;
};

}  // namespace mvdirigo
