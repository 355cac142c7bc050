#include "settings/port_scan.h"

#include "platform/runtime_error.h"

namespace mvdirigo {

bool PortAvailable(SerialPort& MSComm1, int port) {
  return skipOnError([&] {
    MSComm1.setCommPort(port);
    // Whatever rate was tried last: the port may be one that lacks it.
    MSComm1.setSettings("9600");
    MSComm1.setPortOpen(true);
    MSComm1.setPortOpen(false);
  });
}

std::string portRowText(int port, bool available) {
  return "COM" + std::to_string(port) +
         (available ? "  available" : "  (not available or no such port)");
}

}  // namespace mvdirigo
