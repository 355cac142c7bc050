#pragma once

#include <stdexcept>
#include <string>

namespace mvdirigo {

/// The numbers of the run-time faults that a user can meet in an error report.
enum class Fault {
  kOverflow = 6,
  kOutOfMemory = 7,
  kSubscriptOutOfRange = 9,
  kTypeMismatch = 13,
  kFileNotFound = 53,
  kDeviceIo = 57,
  kDiskFull = 61,
  kInputPastEndOfFile = 62,
  kPermissionDenied = 70,
  kPathFileAccess = 75,
  kPathNotFound = 76,
  kInvalidPropertyValue = 380,
  kNotValidWhilePortOpen = 8000,
  kInvalidPortNumber = 8002,
  kPortAlreadyOpen = 8005,
  kDeviceNotOpen = 8012,
  kPortMustBeOpen = 8018,
  kCancelled = 32755,
};

/// A refusal by the platform or a conversion that failed: a number and its fixed description.
/// It reports the world (a port, a file, a text), never a mistake in this program.
class RuntimeError : public std::runtime_error {
 public:
  explicit RuntimeError(Fault fault);

  [[nodiscard]] Fault fault() const { return fault_; }
  [[nodiscard]] int number() const { return static_cast<int>(fault_); }
  [[nodiscard]] std::string description() const { return what(); }

 private:
  Fault fault_;
};

/// The fault that fits an `errno` value of a file operation.
[[nodiscard]] Fault fileFault(int error_number);

/// The text of the error report of `procedure`: its name, "() Error #: ", the number, " :: " and
/// the description.
[[nodiscard]] std::string errorReport(const std::string& procedure, const RuntimeError& error);

/// Runs one step of a procedure that skips its failing steps and goes on with the next.
/// Returns whether the step succeeded.
template <class Step>
bool skipOnError(Step&& step) {
  try {
    step();
    return true;
  } catch (const RuntimeError&) {
    return false;
  }
}

}  // namespace mvdirigo
