#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace mvdirigo {

/// `command` with every "RND", letter case ignored, replaced by the decimal text of a random number
/// from 1 to 1000000. A match at the very start ends the search: nothing is replaced then.
/// `random` gives uniform numbers in [0, 1).
[[nodiscard]] std::string substituteRandom(const std::string& command,
                                           const std::function<double()>& random);

/// The unit address of `command`: its second character; empty when it has none.
[[nodiscard]] std::string unitAddressOf(std::string_view command);

/// Frames of the OEM protocol (docs/PROTOCOLS.md): STX, unit address, sequence character, body,
/// ETX, checksum.
class OemFraming {
 public:
  /// Puts the sequence back to what it is at start.
  void reset();

  /// The whole frame of `command` ("/", unit address, body) to `unitAddress`, sent from
  /// `currentRow`. The command's own address is not looked at: a random number may stand in its
  /// place. A row that sends twice in succession keeps its sequence number and sets the repeat bit;
  /// another row takes the next number.
  [[nodiscard]] std::string frame(std::string_view unitAddress, std::string_view command,
                                  int currentRow);

 private:
  static constexpr int kNoRow = 100;

  int lastRow = kNoRow;
  std::uint8_t seqNumber = '1';
};

}  // namespace mvdirigo
