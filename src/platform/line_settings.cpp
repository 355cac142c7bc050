#include "platform/line_settings.h"

#include <charconv>

#include "platform/runtime_error.h"

namespace mvdirigo {
namespace {

/// The index of `character` in `allowed`; throws when it isn't there.
std::size_t indexIn(std::string_view allowed, char character) {
  const auto index = allowed.find(character);
  if (index == std::string_view::npos) throw RuntimeError(Fault::kInvalidPropertyValue);
  return index;
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
  line.parity = "NEONEO"[indexIn("NEOneo", format[1])];
  line.data_bits = 5 + static_cast<int>(indexIn("5678", format[3]));
  line.stop_bits = 1 + static_cast<int>(indexIn("12", format[5]));
  return line;
}

}  // namespace mvdirigo
