#include "platform/line_settings.h"

#include <charconv>

#include "platform/runtime_error.h"

namespace mvdirigo {
namespace {

char parityOf(char letter) {
  switch (letter) {
    case 'N':
    case 'n':
      return 'N';
    case 'E':
    case 'e':
      return 'E';
    case 'O':
    case 'o':
      return 'O';
    default:
      throw RuntimeError(Fault::kInvalidPropertyValue);
  }
}

/// The number that `digit` stands for; throws when it isn't one from `least` to `most`.
int numberOf(char digit, int least, int most) {
  const int number = digit - '0';
  if (number < least || number > most) throw RuntimeError(Fault::kInvalidPropertyValue);
  return number;
}

}  // namespace

LineSettings parseLineSettings(std::string_view settings) {
  LineSettings line;
  const char* end = settings.data() + settings.size();
  const auto [after_rate, error] = std::from_chars(settings.data(), end, line.baud);
  if (error != std::errc() || line.baud <= 0) throw RuntimeError(Fault::kInvalidPropertyValue);
  if (after_rate == end) return line;

  const std::string_view format(after_rate, static_cast<std::size_t>(end - after_rate));
  if (format.size() != 6 || format[0] != ',' || format[2] != ',' || format[4] != ',') {
    throw RuntimeError(Fault::kInvalidPropertyValue);
  }
  line.parity = parityOf(format[1]);
  line.data_bits = numberOf(format[3], 5, 8);
  line.stop_bits = numberOf(format[5], 1, 2);
  return line;
}

}  // namespace mvdirigo
