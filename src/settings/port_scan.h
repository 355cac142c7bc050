#pragma once

#include <string>

#include "platform/serial_port.h"

namespace mvdirigo {

/// Whether the port of that number can be opened: opens it and closes it again. False while
/// `MSComm1` holds any port open. Leaves `port` as the port number of `MSComm1`, at 9600.
bool PortAvailable(SerialPort& MSComm1, int port);

/// The row of the port list that tells of `port`.
std::string portRowText(int port, bool available);

}  // namespace mvdirigo
