#include "platform/text.h"

#include <utf8cpp/utf8.h>

#include <charconv>
#include <cmath>
#include <iterator>
#include <limits>

#include "platform/runtime_error.h"

namespace mvdirigo {
namespace {

template <class Integer>
Integer roundedInto(std::string_view text) {
  // In the rounding mode that every program starts with, halves go to the even neighbour.
  const double rounded = std::nearbyint(textToNumber(text));
  if (rounded < std::numeric_limits<Integer>::min() ||
      rounded > std::numeric_limits<Integer>::max()) {
    throw RuntimeError(Fault::kOverflow);
  }
  return static_cast<Integer>(rounded);
}

bool isPrintable(char32_t code) {
  const auto within = [code](char32_t first, char32_t last) {
    return code >= first && code <= last;
  };
  const bool control = code < 0x20 || within(0x7F, 0x9F);
  const bool separator = within(0x2028, 0x2029);
  // Marks, embeddings, overrides and isolates of a direction.
  const bool direction =
      code == 0x61C || within(0x200E, 0x200F) || within(0x202A, 0x202E) || within(0x2066, 0x2069);
  return !control && !separator && !direction;
}

}  // namespace

bool isUtf8(std::string_view text) { return utf8::is_valid(text.begin(), text.end()); }

std::string latin1FromUtf8(std::string_view utf8) {
  std::string valid;
  utf8::replace_invalid(utf8.begin(), utf8.end(), std::back_inserter(valid), '?');
  std::string latin1;
  for (auto next = valid.begin(); next != valid.end();) {
    const auto code = utf8::unchecked::next(next);
    latin1 += code <= 0xFF ? static_cast<char>(code) : '?';
  }
  return latin1;
}

std::string utf8FromLatin1(std::string_view latin1) {
  std::string utf8;
  utf8.reserve(latin1.size());
  for (const char character : latin1) {
    utf8::unchecked::append(static_cast<unsigned char>(character), std::back_inserter(utf8));
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

std::string shortVisibleText(std::string_view latin1, std::size_t most) {
  return visibleControls(latin1.substr(0, most)) + (latin1.size() > most ? "\u2026" : "");
}

std::string shownReply(std::string_view latin1) {
  constexpr std::size_t kShown = 4000;
  return utf8FromLatin1(latin1.substr(0, kShown)) + (latin1.size() > kShown ? "\u2026" : "");
}

std::string breakLongStretches(std::string_view utf8, std::string_view line_break, int longest) {
  std::string broken;
  int stretch = 0;
  for (const char byte : utf8) {
    const bool starts_character = (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    if (starts_character && stretch == longest) {
      broken += line_break;
      stretch = 0;
    }
    broken += byte;
    if (byte == ' ' || byte == '\n') {
      stretch = 0;
    } else if (starts_character) {
      ++stretch;
    }
  }
  return broken;
}

std::string printable(std::string_view utf8) {
  constexpr char32_t kReplacement = 0xFFFD;
  std::string valid, shown;
  utf8::replace_invalid(utf8.begin(), utf8.end(), std::back_inserter(valid), kReplacement);
  for (auto next = valid.begin(); next != valid.end();) {
    const auto code = utf8::unchecked::next(next);
    const bool as_it_is = code == '\n' || isPrintable(code);
    utf8::unchecked::append(as_it_is ? code : kReplacement, std::back_inserter(shown));
  }
  return shown;
}

std::string onOneLine(std::string_view utf8) {
  std::string line;
  for (const char byte : printable(utf8)) line += byte == '\n' ? "\uFFFD" : std::string(1, byte);
  return line;
}

std::string shownPath(std::string_view path) {
  constexpr std::ptrdiff_t kShown = 300;
  std::string shown = onOneLine(path);
  const auto hidden = utf8::unchecked::distance(shown.begin(), shown.end()) - kShown;
  if (hidden <= 0) return shown;
  auto start = shown.begin();
  utf8::unchecked::advance(start, hidden);
  return "\u2026" + std::string(start, shown.end());
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
