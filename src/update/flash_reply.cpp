#include "update/flash_reply.h"

#include <algorithm>
#include <string_view>

#include "platform/runtime_error.h"
#include "platform/text.h"

namespace mvdirigo {
namespace {

constexpr std::size_t kNumberOffset = 2;
constexpr std::size_t kNumberLength = 3;

bool isNumber(std::string_view text) {
  return skipOnError([&] { textToNumber(text); });
}

}  // namespace

void FlashReply::clear() {
  buffer_.clear();
  searched_ = 0;
  ReplyDone = false;
}

void FlashReply::append(char character) {
  if (buffer_.size() == kCapacity) {
    buffer_.erase(0, 1);
    if (searched_ > 0) --searched_;
  }
  buffer_ += character;
  if (ReplyDone && WantNumeric) lookForNumber();
}

void FlashReply::lookForNumber() {
  for (std::size_t i = searched_; i + kNumberOffset < buffer_.size(); ++i) {
    if (buffer_[i] != '0') continue;
    if (isNumber(std::string_view(buffer_).substr(i + kNumberOffset, kNumberLength))) {
      NumericSeen = true;
      WantNumeric = false;
      return;
    }
  }
  // Only what reaches the end of the buffer reads differently once more characters have come.
  constexpr std::size_t kReach = kNumberOffset + kNumberLength - 1;
  searched_ = buffer_.size() - std::min(buffer_.size(), kReach);
}

}  // namespace mvdirigo
