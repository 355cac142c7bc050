#pragma once

#include <string_view>

namespace mvdirigo {

/// How a serial line is set.
struct LineSettings {
  int baud = 9600;
  /// 'N' none, 'E' even, 'O' odd.
  char parity = 'N';
  int data_bits = 8;
  int stop_bits = 1;
};

/// Reads "9600", which means 9600,N,8,1, or "rate,parity,data,stop" as `SerialPort::Settings` takes
/// it, letter case of the parity ignored. Throws `kInvalidPropertyValue` for anything else.
[[nodiscard]] LineSettings parseLineSettings(std::string_view settings);

}  // namespace mvdirigo
