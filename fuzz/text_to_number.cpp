#include <cmath>
#include <regex>

#include "platform/text.h"
#include "property.h"
#include "support/fault_number.h"

using namespace mvdirigo;

/// The nearest whole number of a type, or the overflow of a number out of its range.
static void checkWhole(double number, double least, double most, int fault, std::int32_t whole) {
  if (fault != 0) {
    require(fault == 6, "a number out of range is an overflow");
    return require(number < least - 0.5 || number >= most + 0.5, "only what is out of range");
  }
  require(std::abs(number - whole) <= 0.5, "the nearest whole number is taken");
  require(number - std::floor(number) != 0.5 || whole % 2 == 0, "halves go to the even neighbour");
}

/// A decimal text, which may have blanks around it, is its number; anything else is none.
void mvdirigo::check(std::string_view input) {
  static const std::regex form(" *[+-]?(\\d+(\\.\\d*)?|\\.\\d+) *");
  const std::string text(input.substr(0, 1024));
  double number = 0;
  std::int16_t narrow = 0;
  std::int32_t wide = 0;
  const int fault = faultNumber([&] { number = textToNumber(text); });
  if (!std::regex_match(text, form)) return require(fault == 13, "what is no number is refused");
  if (fault == 6) return require(text.size() > 300, "only a number of many digits is too much");
  require(fault == 0 && number == std::strtod(text.c_str(), nullptr), "a number is what it says");
  const int narrow_fault = faultNumber([&] { narrow = textToInt16(text); });
  const int wide_fault = faultNumber([&] { wide = textToInt32(text); });
  checkWhole(number, -32768, 32767, narrow_fault, narrow);
  checkWhole(number, -2147483648.0, 2147483647.0, wide_fault, wide);
}
