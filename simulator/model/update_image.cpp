#include "simulator/model/update_image.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace mvdirigo {
namespace {

constexpr std::size_t kHeaderBytes = 5;
constexpr std::size_t kPieceBytes = 6;

/// Of the hexadecimal digit at that place; 0 when there is none.
int hexValue(std::string_view file, std::size_t at) {
  const std::string_view digit = file.substr(std::min(at, file.size()), 1);
  int value = 0;
  std::from_chars(digit.data(), digit.data() + digit.size(), value, 16);
  return value;
}

}  // namespace

std::string imageOfUpdateFile(std::string_view file) {
  const bool has_header = hexValue(file, 0) <= 5 && hexValue(file, 1) == 0;
  std::string image;
  // A piece that would hold nothing but the file's last byte is not sent.
  for (std::size_t at = has_header ? kHeaderBytes : 0; at + 1 < file.size(); at += kPieceBytes) {
    std::string piece(file.substr(at, kPieceBytes));
    piece.resize(kPieceBytes, ' ');
    image += piece;
  }
  return image;
}

std::string compareImages(std::string_view received, std::string_view expected) {
  if (received == expected) return "matches";
  const auto [here, there] =
      std::mismatch(received.begin(), received.end(), expected.begin(), expected.end());
  char text[160];
  const auto offset = static_cast<std::size_t>(here - received.begin());
  if (here == received.end() || there == expected.end()) {
    std::snprintf(text, sizeof text, "differs: %zu bytes instead of %zu, the same so far",
                  received.size(), expected.size());
  } else {
    std::snprintf(text, sizeof text, "differs first at byte %zu: %02X instead of %02X", offset + 1,
                  static_cast<unsigned char>(*here), static_cast<unsigned char>(*there));
  }
  return text;
}

}  // namespace mvdirigo
