#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace mvdirigo {

/// Characters that were received; of a text without end, the newest 65,536.
class BoundedText {
 public:
  static constexpr std::size_t kCapacity = 64 * 1024;

  void append(char character) {
    // Half of it at a time: moving everything up for every character would be most of the work.
    if (text_.size() == 2 * kCapacity) {
      text_.erase(0, kCapacity);
      dropped_ += kCapacity;
    }
    text_ += character;
  }
  /// Replaces everything by `text`.
  void assign(std::string_view text) {
    text_ = text;
    dropped_ = 0;
  }
  void clear() { assign({}); }

  [[nodiscard]] bool empty() const { return text_.empty(); }
  /// Valid until the next change.
  [[nodiscard]] std::string_view view() const {
    return std::string_view(text_).substr(text_.size() < kCapacity ? 0 : text_.size() - kCapacity);
  }
  /// Characters since it was last empty, those that were dropped included.
  [[nodiscard]] std::size_t length() const { return dropped_ + text_.size(); }

 private:
  std::string text_;
  std::size_t dropped_ = 0;
};

}  // namespace mvdirigo
