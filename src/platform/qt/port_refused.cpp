#include "platform/qt/port_refused.h"

#include <cerrno>

namespace mvdirigo {

Fault openingFault(int error_number) {
  switch (error_number) {
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
    case ENODEV:
    case ENXIO:
    case ENOTTY:
      return Fault::kInvalidPortNumber;
    case EACCES:
    case EPERM:
    case EROFS:
      return Fault::kPermissionDenied;
    case EBUSY:
    case EWOULDBLOCK:
      return Fault::kPortAlreadyOpen;
    default:
      return Fault::kDeviceIo;
  }
}

}  // namespace mvdirigo
