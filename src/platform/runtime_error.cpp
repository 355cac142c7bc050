#include "platform/runtime_error.h"

#include <cerrno>

namespace mvdirigo {
namespace {

const char* descriptionOf(Fault fault) {
  switch (fault) {
    case Fault::kOverflow:
      return "Overflow";
    case Fault::kOutOfMemory:
      return "Out of memory";
    case Fault::kSubscriptOutOfRange:
      return "Subscript out of range";
    case Fault::kTypeMismatch:
      return "Type mismatch";
    case Fault::kFileNotFound:
      return "File not found";
    case Fault::kDeviceIo:
      return "Device I/O error";
    case Fault::kDiskFull:
      return "Disk full";
    case Fault::kInputPastEndOfFile:
      return "Input past end of file";
    case Fault::kPermissionDenied:
      return "Permission denied";
    case Fault::kPathFileAccess:
      return "Path/File access error";
    case Fault::kPathNotFound:
      return "Path not found";
    case Fault::kInvalidPropertyValue:
      return "Invalid property value";
    case Fault::kNotValidWhilePortOpen:
      return "Operation not valid while the port is opened";
    case Fault::kInvalidPortNumber:
      return "Invalid port number";
    case Fault::kPortAlreadyOpen:
      return "Port already open";
    case Fault::kDeviceNotOpen:
      return "The device is not open";
    case Fault::kPortMustBeOpen:
      return "Operation valid only when the port is open";
    case Fault::kCancelled:
      return "Cancel was selected.";
  }
  return "";
}

}  // namespace

RuntimeError::RuntimeError(Fault fault) : std::runtime_error(descriptionOf(fault)), fault_(fault) {}

Fault fileFault(int error_number) {
  switch (error_number) {
    case ENOENT:
      return Fault::kFileNotFound;
    case ENOTDIR:
      return Fault::kPathNotFound;
    case EACCES:
    case EPERM:
    case EROFS:
      return Fault::kPermissionDenied;
    case ENOSPC:
    case EDQUOT:
      return Fault::kDiskFull;
    case ENOMEM:
      return Fault::kOutOfMemory;
    case EISDIR:
      return Fault::kPathFileAccess;
    case EIO:
      return Fault::kDeviceIo;
    default:
      return Fault::kPathFileAccess;
  }
}

std::string errorReport(const std::string& procedure, const RuntimeError& error) {
  return procedure + "() Error #: " + std::to_string(error.number()) + " :: " + error.description();
}

}  // namespace mvdirigo
