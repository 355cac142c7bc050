#include "platform/text.h"

#include <charconv>
#include <cmath>
#include <limits>

#include "platform/runtime_error.h"

namespace mvdirigo {
namespace {

bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

template <class Integer>
Integer roundedInto(std::string_view text) {
  const double value = textToNumber(text);
  const double floor = std::floor(value);
  const double fraction = value - floor;
  const bool floor_is_even = std::fmod(floor, 2.0) == 0.0;
  const double rounded = fraction > 0.5 || (fraction == 0.5 && !floor_is_even) ? floor + 1 : floor;
  if (rounded < std::numeric_limits<Integer>::min() ||
      rounded > std::numeric_limits<Integer>::max()) {
    throw RuntimeError(Fault::kOverflow);
  }
  return static_cast<Integer>(rounded);
}

}  // namespace

std::string latin1FromUtf8(std::string_view utf8) {
  std::string latin1;
  latin1.reserve(utf8.size());
  for (std::size_t i = 0; i < utf8.size();) {
    const auto lead = static_cast<unsigned char>(utf8[i++]);
    if (lead < 0x80) {
      latin1 += static_cast<char>(lead);
      continue;
    }
    const bool in_latin1 =
        (lead == 0xC2 || lead == 0xC3) && i < utf8.size() && isContinuation(utf8[i]);
    latin1 += in_latin1 ? static_cast<char>(((lead & 0x03) << 6) | (utf8[i] & 0x3F)) : '?';
    while (i < utf8.size() && isContinuation(utf8[i])) ++i;
  }
  return latin1;
}

std::string utf8FromLatin1(std::string_view latin1) {
  std::string utf8;
  utf8.reserve(latin1.size());
  for (const char character : latin1) {
    const auto code = static_cast<unsigned char>(character);
    if (code < 0x80) {
      utf8 += character;
    } else {
      utf8 += static_cast<char>(0xC0 | (code >> 6));
      utf8 += static_cast<char>(0x80 | (code & 0x3F));
    }
  }
  return utf8;
}

std::string visibleControls(std::string_view latin1) {
  constexpr std::string_view kHex = "0123456789ABCDEF";
  std::string visible;
  for (const char character : latin1) {
    const auto code = static_cast<unsigned char>(character);
    if (character == '\r') {
      visible += "\\r";
    } else if (character == '\n') {
      visible += "\\n";
    } else if (code < 0x20 || (code >= 0x7F && code < 0xA0)) {
      visible += {'\\', 'x', kHex[code >> 4], kHex[code & 0x0F]};
    } else {
      visible += utf8FromLatin1({&character, 1});
    }
  }
  return visible;
}

std::string shortVisibleText(std::string_view latin1) {
  constexpr std::size_t kShown = 300;
  return visibleControls(latin1.substr(0, kShown)) + (latin1.size() > kShown ? "\u2026" : "");
}

std::string shownReply(std::string_view latin1) {
  constexpr std::size_t kShown = 4000;
  return utf8FromLatin1(latin1.substr(0, kShown)) + (latin1.size() > kShown ? "\u2026" : "");
}

std::string_view trimBlanks(std::string_view text) {
  const auto first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

double textToNumber(std::string_view text) {
  std::string_view digits = trimBlanks(text);
  if (digits.starts_with('+') && !digits.starts_with("+-")) digits.remove_prefix(1);
  double value = 0;
  const char* end = digits.data() + digits.size();
  // Fixed notation only; from_chars would also take "inf" and "nan", which are no decimal texts.
  const bool decimal = digits.find_first_not_of("+-.0123456789") == std::string_view::npos;
  const auto parsed = std::from_chars(digits.data(), end, value, std::chars_format::fixed);
  if (!decimal || parsed.ec == std::errc::invalid_argument || parsed.ptr != end) {
    throw RuntimeError(Fault::kTypeMismatch);
  }
  if (parsed.ec == std::errc::result_out_of_range) throw RuntimeError(Fault::kOverflow);
  return value;
}

std::int16_t textToInt16(std::string_view text) { return roundedInto<std::int16_t>(text); }
std::int32_t textToInt32(std::string_view text) { return roundedInto<std::int32_t>(text); }

}  // namespace mvdirigo
