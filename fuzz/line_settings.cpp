#include "platform/line_settings.h"

#include <regex>

#include "platform/text.h"
#include "property.h"
#include "support/fault_number.h"

/// Exactly the settings that are allowed are taken, and taken as they are given.
void mvdirigo::check(std::string_view input) {
  static const std::regex form("0*([1-9]\\d{0,9})(,([neo],[5-8],[12]))?");
  const std::string text = lowerCase(input.substr(0, 60));
  std::smatch parts;
  const bool allowed = std::regex_match(text, parts, form) && std::stoll(parts[1]) < 1LL << 31;
  LineSettings line;
  const int fault = faultNumber([&] { line = parseLineSettings(input.substr(0, 60)); });
  require(fault == (allowed ? 0 : 380), "what is not allowed is an invalid property value");
  const std::string taken = {line.parity, ',', static_cast<char>('0' + line.data_bits), ',',
                             static_cast<char>('0' + line.stop_bits)};
  if (!allowed) return;
  require(parts[1] == std::to_string(line.baud), "the rate is what was given");
  require(lowerCase(taken) == (parts[3].matched ? parts.str(3) : "n,8,1"), "so is the rest");
  require(line.parity < 'a', "a parity is told in one way");
}
