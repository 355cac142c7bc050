#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/runtime_error.h"
#include "platform/text.h"
#include "property.h"

using namespace mvdirigo;

namespace {

/// Any text is a number in range, or refused with the fault given for it; a whole number reads back
/// from its own text, with blanks around it.
void check(std::string_view text) {
  double number = 0;
  try {
    number = textToNumber(text);
  } catch (const RuntimeError& error) {
    require(error.fault() == Fault::kTypeMismatch, "a text that is no number is a type mismatch");
    return;
  }
  require(textToNumber(" " + std::string(text) + "  ") == number,
          "blanks around make no difference");
  try {
    const std::int16_t whole = textToInt16(text);
    require(std::abs(number - whole) <= 0.5, "the nearest whole number is taken");
    require(number - std::floor(number) != 0.5 || whole % 2 == 0,
            "halves go to the even neighbour");
    require(textToInt16(std::to_string(whole)) == whole, "a whole number reads back");
    require(textToInt32(text) == whole, "the wider type gives the same");
  } catch (const RuntimeError& error) {
    require(error.fault() == Fault::kOverflow, "a number out of range is an overflow");
    require(number <= -32768.5 || number >= 32767.5, "only what is out of range overflows");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  check({reinterpret_cast<const char*>(data), size});
  return 0;
}
