#pragma once

#include <cstddef>
#include <string_view>

#include "platform/bounded_text.h"

namespace mvdirigo {

/// What the unit has said since the buffer was last emptied, and what came of it.
/// The flags stay as they are until somebody changes them; texts are Latin-1.
class FlashReply {
 public:
  /// Valid until the next character comes in.
  [[nodiscard]] std::string_view UpdateRxBuffer() const { return buffer_.view(); }
  [[nodiscard]] bool contains(std::string_view text) const {
    return UpdateRxBuffer().find(text) != std::string_view::npos;
  }

  /// Empties the buffer and clears `ReplyDone`.
  void clear();

  /// Appends a received character. With `ReplyDone` and `WantNumeric` set, a "0" in the buffer
  /// followed, one character further, by three that form a number turns `WantNumeric` into
  /// `NumericSeen`.
  void append(char character);

  /// A carriage return was received.
  bool ReplyDone = false;
  /// A "?" was received.
  bool PromptSeen = false;
  /// The completed reply is to be searched for a number.
  bool WantNumeric = false;
  bool NumericSeen = false;

 private:
  void lookForNumber();

  BoundedText buffer_;
  /// Characters of the buffer, dropped ones included, at which no number can begin any more.
  std::size_t searched_ = 0;
};

}  // namespace mvdirigo
