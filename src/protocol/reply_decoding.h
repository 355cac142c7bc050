#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace mvdirigo {

/// Texts of the status codes, appended directly after a reply's data; hence the leading blanks.
/// Code 14 has none, and index 16 can't arise from a four-bit code.
extern const std::array<const char*, 17> ErrorTable;

/// A reply taken apart. Positions below are 1-based, as in docs/PROTOCOLS.md.
struct DecodedReply {
  /// The status character; none when the reply is too short to hold one.
  std::optional<char> status;
  /// Data characters without carriage returns; empty when the reply is too short.
  std::string data;
};

/// A DT reply up to its carriage return: one leading character, "/0", status, data, ETX. The status
/// follows the first "0"; the data start at position 5.
[[nodiscard]] DecodedReply decodeDt(std::string_view reply);

/// An OEM reply without STX and checksum: "0", status, data, ETX.
[[nodiscard]] DecodedReply decodeOem(std::string_view reply);

/// The status code, 0 to 15: the low four bits of the status character.
[[nodiscard]] inline int statusCode(char status) { return status & 0x0F; }

}  // namespace mvdirigo
