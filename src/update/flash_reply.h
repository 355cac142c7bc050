#pragma once

#include <cstddef>
#include <string>

namespace mvdirigo {

/// What the unit has said since the buffer was last emptied, and what came of it.
/// The flags stay as they are until somebody changes them; texts are Latin-1.
class FlashReply {
 public:
  /// The newest characters are kept when a reply does not end.
  static constexpr std::size_t kCapacity = 64 * 1024;

  const std::string& UpdateRxBuffer() const { return buffer_; }
  bool contains(const char* text) const { return buffer_.find(text) != std::string::npos; }

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

  std::string buffer_;
  /// Before this position no number can show any more.
  std::size_t searched_ = 0;
};

}  // namespace mvdirigo
