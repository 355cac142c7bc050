#include <cmath>

#include "platform/text.h"
#include "property.h"
#include "support/fault_number.h"

/// Any text is a number in range, or refused with the fault given for it; a whole number reads back
/// from its own text, with blanks around it.
void mvdirigo::check(std::string_view text) {
  double number = 0;
  std::int16_t whole = 0;
  if (const int fault = faultNumber([&] { number = textToNumber(text); })) {
    return require(fault == 13, "a text that is no number is a type mismatch");
  }
  require(textToNumber(" " + std::string(text) + "  ") == number, "blanks around don't matter");
  if (const int fault = faultNumber([&] { whole = textToInt16(text); })) {
    require(fault == 6, "a number out of range is an overflow");
    return require(number < -32768.5 || number >= 32767.5, "only what is out of range overflows");
  }
  require(std::abs(number - whole) <= 0.5, "the nearest whole number is taken");
  require(number - std::floor(number) != 0.5 || whole % 2 == 0, "halves go to the even neighbour");
  require(textToInt16(std::to_string(whole)) == whole, "a whole number reads back");
  require(textToInt32(text) == whole, "the wider type gives the same");
}
